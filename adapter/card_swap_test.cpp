// Signatures through the adapter when another card is in the reader, whose objects have the handles
// that the first card's had.
#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <map>

#include "adapter/testing/adapter_fixture.h"

namespace kelvrin::adapter {
namespace {

class CardSwapTest : public testing::Test {
 protected:
  CardSwapTest() {
    fake_.sign = [this](CK_MECHANISM_TYPE, const FakeModule::Bytes&, FakeModule::Bytes* output) {
      // A signature that tells whose it is.
      *output = fake_.objects.at(fake_.operation_key).at(CKA_ID);
      return CK_RV{CKR_OK};
    };
    PutIn("0001", {{kKey, 1}, {kOtherKey, 2}});
    EXPECT_EQ(adapter_.Initialize(nullptr), CKR_OK);
    EXPECT_EQ(adapter_.OpenSession(7, kAdapterFlags, nullptr, nullptr, &session_), CKR_OK);
    EXPECT_EQ(Find(1), kKey);
    EXPECT_EQ(Sign(kKey), FakeModule::Bytes{1});
  }

  // The card with that serial number and these keys: by handle, their CKA_IDs.
  void PutIn(const char* serial, const std::map<CK_OBJECT_HANDLE, CK_BYTE>& keys) {
    fake_.slots[0].serial = serial;
    fake_.objects.clear();
    for (const auto& [handle, id] : keys) {
      fake_.objects[handle] = {{CKA_CLASS, FakeModule::Number(CKO_PRIVATE_KEY)}, {CKA_ID, {id}}};
    }
    now_ += std::chrono::seconds(1);
  }
  // CK_INVALID_HANDLE when there is none.
  CK_OBJECT_HANDLE Find(CK_BYTE id) {
    CK_OBJECT_CLASS object_class = CKO_PRIVATE_KEY;
    std::array<CK_ATTRIBUTE, 2> wanted = {
        {{CKA_CLASS, &object_class, sizeof(object_class)}, {CKA_ID, &id, 1}}};
    CK_OBJECT_HANDLE found = CK_INVALID_HANDLE;
    CK_ULONG count = 0;
    EXPECT_EQ(adapter_.FindObjectsInit(session_, wanted.data(), wanted.size()), CKR_OK);
    EXPECT_EQ(adapter_.FindObjects(session_, &found, 1, &count), CKR_OK);
    return found;
  }
  // Empty when it fails.
  FakeModule::Bytes Sign(CK_OBJECT_HANDLE key) {
    CK_MECHANISM mechanism = {CKM_RSA_PKCS, nullptr, 0};
    FakeModule::Bytes signature(8);
    CK_ULONG size = signature.size();
    const CK_RV result = adapter_.WithOperation(session_, [&](KeyOperation& operation) {
      const CK_RV begun = operation.Init(OperationKind::kSign, &mechanism, key);
      if (begun != CKR_OK) return begun;
      return operation.Run(OperationKind::kSign, signature.data(), 1, signature.data(), &size);
    });
    signature.resize(result == CKR_OK ? size : 0);
    return signature;
  }

  static constexpr CK_OBJECT_HANDLE kKey = 11;
  static constexpr CK_OBJECT_HANDLE kOtherKey = 12;

  FakeModule fake_;
  SearchMemory::Clock::time_point now_{std::chrono::hours(1)};
  Adapter adapter_{[this] {
    return Backend{
        .config = {}, .functions = FakeModule::functions(), .now = [this] { return now_; }};
  }};
  CK_SESSION_HANDLE session_ = 0;
};

TEST_F(CardSwapTest, KeptHandleSignsWithTheNewCardsKeyOfTheSameId) {
  PutIn("0002", {{kKey, 2}, {kOtherKey, 1}});
  for (int i = 0; i < 3; ++i) EXPECT_EQ(Sign(kKey), FakeModule::Bytes{1}) << i;
  EXPECT_EQ(Find(1), kOtherKey);
  EXPECT_EQ(Sign(Find(1)), FakeModule::Bytes{1});
}

TEST_F(CardSwapTest, KeptHandleSignsNothingWhereTheNewCardHasNoKeyOfThatId) {
  PutIn("0002", {{kKey, 2}, {kOtherKey, 3}});
  for (int i = 0; i < 3; ++i) EXPECT_EQ(Sign(kKey), FakeModule::Bytes()) << i;
  EXPECT_EQ(Find(1), CK_INVALID_HANDLE);
  EXPECT_EQ(Sign(kKey), FakeModule::Bytes());
  EXPECT_EQ(Find(2), kKey);
  EXPECT_EQ(Sign(kKey), FakeModule::Bytes{2}) << "now it was asked for";
}

TEST_F(CardSwapTest, TheFirstCardsKeySignsWhenItIsBack) {
  PutIn("0002", {{kKey, 2}});
  EXPECT_EQ(Sign(kKey), FakeModule::Bytes());
  PutIn("0001", {{kKey, 1}, {kOtherKey, 2}});
  EXPECT_EQ(Sign(kKey), FakeModule::Bytes{1});
}

}  // namespace
}  // namespace kelvrin::adapter
