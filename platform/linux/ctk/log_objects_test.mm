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

TEST(LogObjects, TextIsTheObjectsDescriptionWhenTheLineIsWrittenAndHiddenUnlessPublic) {
  const oslog::Recorder recorder;
  NSMutableString *text = [NSMutableString stringWithString:@"Müller"];
  os_log_error(OS_LOG_DEFAULT, "Constraint ungültig: %@", text);
  os_log(OS_LOG_DEFAULT, "instanceID:  %{public}@", @4711);
  [text setString:@"after"];
  EXPECT_THAT(recorder.texts(oslog::ShowPrivate::kNo),
              ElementsAre("Constraint ungültig: <private>", "instanceID:  4711"));
  EXPECT_THAT(recorder.typed_texts(),
              ElementsAre("error: Constraint ungültig: Müller", "default: instanceID:  4711"));
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
