#include "adapter/shared_state.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <memory>

#include "tests/temporary_folder.h"

namespace kelvrin::adapter {
namespace {

using testing::IsEmpty;

class DecideStateTest : public testing::Test {
 protected:
  // Decides, and keeps the state to be deleted: real ones last as long as the process.
  SharedState* Decide(Copy* own, const std::vector<Copy*>& others) {
    SharedState* const state = &DecideState(*own, others);
    if (state_ == nullptr) state_.reset(state);
    return state;
  }

  std::unique_ptr<SharedState> state_;
  Copy copies_[3];
};

TEST_F(DecideStateTest, FirstOneDecidesForAllThatItSees) {
  SharedState* const state = Decide(&copies_[1], {&copies_[0], &copies_[2]});
  for (const Copy& copy : copies_) EXPECT_EQ(copy.state, state);
  // One that sees nobody else follows all the same.
  EXPECT_EQ(Decide(&copies_[0], {}), state);
}

TEST_F(DecideStateTest, LaterOneTakesWhatWasDecided) {
  SharedState* const state = Decide(&copies_[1], {});
  EXPECT_EQ(copies_[0].state, nullptr);
  EXPECT_EQ(Decide(&copies_[0], {&copies_[0], &copies_[1]}), state);
  EXPECT_EQ(Decide(&copies_[2], {&copies_[0], &copies_[2]}), state);
}

TEST_F(DecideStateTest, DecisionIsKept) {
  SharedState* const state = Decide(&copies_[0], {});
  EXPECT_EQ(Decide(&copies_[0], {&copies_[1]}), state);
  EXPECT_EQ(copies_[1].state, state);
}

TEST(LoadedCopiesTest, MissingFolderHasNone) {
  EXPECT_THAT(FindLoadedCopies("/nowhere/at/all/libX.so"), IsEmpty());
}

TEST(LoadedCopiesTest, FilesThatAreNoLoadedCopiesAreNone) {
  const TemporaryFolder folder;
  folder.Write("libX.so", "no library");
  folder.Write("libX.conf", "");
  folder.Write("lonely.conf", "");
  folder.Write("noconf.so", "");
  folder.Write("libNoEnding", "");
  folder.Write("libNoEnding.conf", "");
  EXPECT_THAT(FindLoadedCopies((folder / "libX.so").string()), IsEmpty());
}

TEST(LoadedCopiesTest, PipeBesideAConfigurationIsNotOpened) {
  const TemporaryFolder folder;
  ASSERT_EQ(mkfifo((folder / "libX.pipe").c_str(), 0600), 0);
  folder.Write("libX.conf", "");
  EXPECT_THAT(FindLoadedCopies((folder / "libX.so").string()), IsEmpty());
}

}  // namespace
}  // namespace kelvrin::adapter
