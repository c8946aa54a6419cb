#import <Foundation/Foundation.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <os/log.h>

#include <thread>

#include "platform/linux/log/log_recorder.h"

namespace {

using testing::ElementsAre;

TEST(LogObjects, MissingObjectReadsNull) {
  const oslog::Recorder recorder;
  NSString *none = nil;
  os_log(OS_LOG_DEFAULT, "%@ %{public}@", none, none);
  EXPECT_THAT(recorder.texts(), ElementsAre("(null) (null)"));
  EXPECT_THAT(recorder.texts(oslog::ShowPrivate::kNo), ElementsAre("<private> (null)"));
}

TEST(LogObjects, ObjectIsHiddenUnlessPublic) {
  const oslog::Recorder recorder;
  os_log_error(OS_LOG_DEFAULT, "Constraint ungültig: %@", @"Müller");
  os_log(OS_LOG_DEFAULT, "instanceID:  %{public}@", @"4711");
  EXPECT_THAT(recorder.texts(oslog::ShowPrivate::kNo),
              ElementsAre("Constraint ungültig: <private>", "instanceID:  4711"));
  EXPECT_THAT(recorder.typed_texts(),
              ElementsAre("error: Constraint ungültig: Müller", "default: instanceID:  4711"));
}

TEST(LogObjects, TextIsTheObjectsDescription) {
  const oslog::Recorder recorder;
  os_log(OS_LOG_DEFAULT, "%{public}@", @42);
  EXPECT_THAT(recorder.texts(), ElementsAre("42"));
  EXPECT_EQ(recorder.lines()[0].arguments[0].kind, oslog::Kind::kObject);
}

TEST(LogObjects, TextIsTakenWhenTheLineIsWritten) {
  const oslog::Recorder recorder;
  NSMutableString *text = [NSMutableString stringWithString:@"before"];
  os_log(OS_LOG_DEFAULT, "%{public}@", text);
  [text setString:@"after"];
  EXPECT_THAT(recorder.texts(), ElementsAre("before"));
}

TEST(LogObjects, ThreadWithoutAPoolMayLogObjects) {
  const oslog::Recorder recorder;
  NSNumber *number = @42;
  testing::internal::CaptureStderr();
  std::thread([number] { os_log(OS_LOG_DEFAULT, "%{public}@", number); }).join();
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_THAT(recorder.texts(), ElementsAre("42"));
}

}  // namespace
