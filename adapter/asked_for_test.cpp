#include "adapter/asked_for.h"

#include <gtest/gtest.h>

#include <array>

namespace kelvrin::adapter {
namespace {

const Wanted kFirst = {.object_class = CKO_PRIVATE_KEY, .id = Bytes{1}};
const Wanted kSecond = {.object_class = CKO_PRIVATE_KEY, .id = Bytes{2}};

TEST(AskedForTest, TemplateIsReadAsFarAsItSaysClassAndId) {
  CK_OBJECT_CLASS object_class = CKO_PRIVATE_KEY;
  CK_BYTE id = 1;
  std::array<CK_ATTRIBUTE, 3> attributes = {{{CKA_CLASS, &object_class, sizeof(object_class)},
                                             {CKA_ID, &id, sizeof(id)},
                                             {CKA_LABEL, nullptr, 0}}};
  const std::span<const CK_ATTRIBUTE> all = attributes;
  EXPECT_EQ(ReadWanted(all.first(2)), kFirst);
  EXPECT_TRUE(ReadWanted(all.first(2)).IsName());
  EXPECT_EQ(ReadWanted(all.first(2)).Name(), (ObjectName{CKO_PRIVATE_KEY, {1}}));
  EXPECT_FALSE(ReadWanted(all).IsName());
  EXPECT_EQ(ReadWanted(all).id, Bytes{1});
  EXPECT_FALSE(ReadWanted(all.first(1)).IsName());
  EXPECT_FALSE(ReadWanted(all.subspan(1, 1)).IsName());
}

TEST(AskedForTest, LastSearchThatFoundTheHandleCounts) {
  AskedFor asked;
  EXPECT_EQ(asked.Find(5), nullptr);
  asked.Remember(5, kFirst);
  ASSERT_NE(asked.Find(5), nullptr);
  EXPECT_EQ(*asked.Find(5), kFirst);
  asked.Remember(5, kSecond);
  EXPECT_EQ(*asked.Find(5), kSecond);
  EXPECT_EQ(asked.Find(6), nullptr);
}

TEST(AskedForTest, DroppedHandleIsNotKnown) {
  AskedFor asked;
  asked.Remember(5, kFirst);
  asked.Remember(6, kSecond);
  asked.Drop(5);
  EXPECT_EQ(asked.Find(5), nullptr);
  EXPECT_NE(asked.Find(6), nullptr);
}

TEST(AskedForTest, ThousandsOfHandlesAreKnownAndThoseInUseStay) {
  AskedFor asked;
  for (CK_OBJECT_HANDLE object = 1; object <= 100000; ++object) {
    asked.Remember(object, kFirst);
    asked.Remember(5, kSecond);
  }
  ASSERT_NE(asked.Find(5), nullptr);
  EXPECT_EQ(*asked.Find(5), kSecond);
  EXPECT_NE(asked.Find(97000), nullptr);
  EXPECT_EQ(asked.Find(50000), nullptr) << "they do not pile up";
  asked.Drop(5);
  EXPECT_EQ(asked.Find(5), nullptr) << "in neither half";
}

}  // namespace
}  // namespace kelvrin::adapter
