// Several tokens behind one adapter, without the rule one-slot.
#include <gtest/gtest.h>

#include "adapter/testing/adapter_fixture.h"

namespace kelvrin::adapter {
namespace {

class AllTokensTest : public AdapterTest {
 protected:
  AllTokensTest() {
    config_.rules.SwitchOff(Rule::kOneSlot);
    fake_.slots = {{.id = 7}, {.id = 8, .serial = "0002"}};
    fake_.sign = [](CK_MECHANISM_TYPE, const FakeModule::Bytes&, FakeModule::Bytes* output) {
      *output = {1};
      return CK_RV{CKR_OK};
    };
    EXPECT_EQ(adapter_.Initialize(nullptr), CKR_OK);
  }
  CK_SESSION_HANDLE OpenOn(CK_SLOT_ID slot) {
    CK_SESSION_HANDLE session = 0;
    EXPECT_EQ(adapter_.OpenSession(slot, kAdapterFlags, nullptr, nullptr, &session), CKR_OK);
    return session;
  }
  CK_RV Sign(CK_SESSION_HANDLE session) {
    const CK_BYTE data = 1;
    CK_BYTE signature = 0;
    CK_ULONG size = 1;
    return adapter_.WithOperation(session, [&](KeyOperation& operation) {
      return operation.Run(OperationKind::kSign, &data, 1, &signature, &size);
    });
  }
};

TEST_F(AllTokensTest, LogoutEndsTheOperationsOfItsOwnTokenOnly) {
  const CK_SESSION_HANDLE own = OpenOn(7);
  const CK_SESSION_HANDLE other = OpenOn(8);
  const CK_SESSION_HANDLE same_token = OpenOn(7);
  for (const CK_SESSION_HANDLE session : {own, other, same_token}) {
    ASSERT_EQ(SignInit(session), CKR_OK);
  }
  ASSERT_EQ(adapter_.Logout(own), CKR_OK);
  EXPECT_EQ(Sign(own), CKR_OPERATION_NOT_INITIALIZED);
  EXPECT_EQ(Sign(same_token), CKR_OPERATION_NOT_INITIALIZED);
  EXPECT_EQ(Sign(other), CKR_OK);
}

TEST_F(AllTokensTest, LogoutLeavesWhatWasDerivedOnAnotherToken) {
  const CK_SESSION_HANDLE own = OpenOn(7);
  const CK_SESSION_HANDLE other = OpenOn(8);
  const CK_OBJECT_HANDLE derived = Derive(other);
  ASSERT_EQ(adapter_.Logout(own), CKR_OK);
  Derive(other);
  EXPECT_FALSE(fake_.objects.contains(derived)) << "it is destroyed before the next one";
}

}  // namespace
}  // namespace kelvrin::adapter
