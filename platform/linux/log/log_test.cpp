#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <os/log.h>

#include <cerrno>

#include "platform/linux/log/log_recorder.h"

namespace oslog {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

int Count(int* evaluations) { return ++*evaluations; }

TEST(Log, TypeThatIsOffEvaluatesAndWritesNothing) {
  const Recorder recorder;
  const Disabled off(OS_LOG_TYPE_ERROR);
  int evaluations = 0;
  EXPECT_FALSE(os_log_type_enabled(OS_LOG_DEFAULT, OS_LOG_TYPE_ERROR));
  os_log_error(OS_LOG_DEFAULT, "%d", Count(&evaluations));
  EXPECT_EQ(evaluations, 0);
  uint8_t buffer[] = {0, 0};  // a line without the test
  _os_log_impl(static_cast<void*>(&__dso_handle), OS_LOG_DEFAULT, OS_LOG_TYPE_ERROR, "text", buffer,
               sizeof(buffer));
  EXPECT_THAT(recorder.lines(), IsEmpty());
}

TEST(Log, AllTypesButDebugAreOnAtTheStartAndEachIsSwitchedAlone) {
  const os_log_type_t types[] = {OS_LOG_TYPE_DEFAULT, OS_LOG_TYPE_INFO, OS_LOG_TYPE_DEBUG,
                                 OS_LOG_TYPE_ERROR, OS_LOG_TYPE_FAULT};
  for (const os_log_type_t switched : types) {
    const bool at_start = switched != OS_LOG_TYPE_DEBUG;
    EXPECT_EQ(os_log_type_enabled(OS_LOG_DEFAULT, switched), at_start);
    SetEnabled(switched, !at_start);
    for (const os_log_type_t other : types) {
      EXPECT_EQ(os_log_type_enabled(OS_LOG_DEFAULT, other),
                (other != OS_LOG_TYPE_DEBUG) != (other == switched));
    }
    SetEnabled(switched, at_start);
  }
}

TEST(Log, OnlyTheDefaultObjectIsEnabled) {
  const Recorder recorder;
  int other = 0;
  for (void* const object : {static_cast<void*>(nullptr), static_cast<void*>(&other)}) {
    const auto log = static_cast<os_log_t>(object);
    EXPECT_FALSE(os_log_type_enabled(log, OS_LOG_TYPE_ERROR));
    os_log_error(log, "text");
    uint8_t buffer[] = {0, 0};  // a line without the test
    _os_log_impl(static_cast<void*>(&__dso_handle), log, OS_LOG_TYPE_ERROR, "text", buffer,
                 sizeof(buffer));
  }
  EXPECT_THAT(recorder.lines(), IsEmpty());
}

TEST(Log, DisabledPutsBackWhatWas) {
  {
    const Disabled outer(OS_LOG_TYPE_DEFAULT);
    {
      const Disabled inner(OS_LOG_TYPE_DEFAULT);
    }
    EXPECT_FALSE(os_log_type_enabled(OS_LOG_DEFAULT, OS_LOG_TYPE_DEFAULT));
  }
  EXPECT_TRUE(os_log_type_enabled(OS_LOG_DEFAULT, OS_LOG_TYPE_DEFAULT));
}

TEST(Log, LinesHaveTheTypeOfTheirMacro) {
  const Recorder recorder;
  int evaluations = 0;
  os_log(OS_LOG_DEFAULT, "");
  os_log_error(OS_LOG_DEFAULT, "%d of %{public}s", Count(&evaluations), "two");
  os_log_with_type(OS_LOG_DEFAULT, OS_LOG_TYPE_INFO, "three");
  EXPECT_THAT(recorder.typed_texts(), ElementsAre("default: ", "error: 1 of two", "info: three"));
}

TEST(Log, NothingIsPrinted) {
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  {
    const Recorder recorder;
    os_log_error(OS_LOG_DEFAULT, "kept");
  }
  os_log_error(OS_LOG_DEFAULT, "kept by none");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST(Log, ErrorNumberOutlivesALine) {
  const Recorder recorder;
  errno = ENOENT;
  os_log(OS_LOG_DEFAULT, "line");
  EXPECT_EQ(errno, ENOENT);
}

}  // namespace
}  // namespace oslog
