#include "adapter/derived_keys.h"

#include <gtest/gtest.h>

#include <thread>

#include "adapter/testing/living_threads.h"

namespace kelvrin::adapter {
namespace {

TEST(DerivedKeysTest, NothingDerivedIsNothingToDestroy) {
  DerivedKeys keys;
  EXPECT_FALSE(keys.Take());
  keys.Drop(5);
}

TEST(DerivedKeysTest, TheThreadsObjectIsTakenOnce) {
  DerivedKeys keys;
  EXPECT_FALSE(keys.Remember(5));
  EXPECT_EQ(keys.Take(), 5u);
  EXPECT_FALSE(keys.Take());
}

TEST(DerivedKeysTest, SecondObjectDropsTheFirst) {
  DerivedKeys keys;
  EXPECT_FALSE(keys.Remember(5));
  EXPECT_EQ(keys.Remember(6), 5u);
  EXPECT_EQ(keys.Take(), 6u);
}

TEST(DerivedKeysTest, ObjectsOfOtherThreadsStay) {
  DerivedKeys keys;
  keys.Remember(5);
  std::thread([&] {
    EXPECT_FALSE(keys.Take());
    EXPECT_FALSE(keys.Remember(6));
  }).join();
  EXPECT_EQ(keys.Take(), 5u);
}

TEST(DerivedKeysTest, ObjectThatItsCallerDestroysIsForgotten) {
  DerivedKeys keys;
  keys.Remember(5);
  keys.Drop(5);
  EXPECT_FALSE(keys.Take());
  keys.Remember(6);
  keys.Clear();
  EXPECT_FALSE(keys.Take());
}

TEST(DerivedKeysTest, ObjectsOfAnotherTokenAreForgotten) {
  DerivedKeys keys;
  for (const std::optional<std::string>& token :
       {std::optional<std::string>("one"), std::optional<std::string>("two"),
        std::optional<std::string>()}) {
    keys.BelongTo(token);
    EXPECT_FALSE(keys.Take());
    keys.Remember(5);
    keys.BelongTo(token);
    EXPECT_EQ(keys.Take(), 5u);
    keys.Remember(6);
  }
}

TEST(DerivedKeysTest, ObjectsOfThreadsThatAreGoneDoNotPileUp) {
  DerivedKeys keys;
  LivingThreads threads;
  for (CK_OBJECT_HANDLE key = 1; key <= 32; ++key) {
    threads.Run([&] { EXPECT_FALSE(keys.Remember(key)); });
  }
  threads.Run([&] { EXPECT_EQ(keys.Remember(33), 1u) << "the oldest"; });
}

}  // namespace
}  // namespace kelvrin::adapter
