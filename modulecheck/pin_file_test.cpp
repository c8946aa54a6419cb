#include "modulecheck/pin_file.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

namespace kelvrin::modulecheck {
namespace {

TEST(PinFileTest, ACrashLeavesNoMemoryInAFile) {
  ForbidCoreFiles();
  rlimit limit = {1, 1};
  ASSERT_EQ(getrlimit(RLIMIT_CORE, &limit), 0);
  EXPECT_EQ(limit.rlim_cur, 0U);
  EXPECT_EQ(limit.rlim_max, 0U);
}

}  // namespace
}  // namespace kelvrin::modulecheck
