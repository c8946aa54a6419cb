// Requests take no memory of their own: what they need is on the stack.
#include "token/testing/card_request.h"

namespace token_testing {
namespace {

// A logged-in card with one key, which allocates nothing itself.
CK_RV GetSessionInfo(CK_SESSION_HANDLE, CK_SESSION_INFO *info) {
  info->state = CKS_RW_USER_FUNCTIONS;
  return CKR_OK;
}
CK_RV FindObjectsInit(CK_SESSION_HANDLE, CK_ATTRIBUTE *, CK_ULONG) { return CKR_OK; }
CK_RV FindObjects(CK_SESSION_HANDLE, CK_OBJECT_HANDLE *found, CK_ULONG, CK_ULONG *count) {
  *found = 1;
  *count = 1;
  return CKR_OK;
}
CK_RV OperationInit(CK_SESSION_HANDLE, CK_MECHANISM *, CK_OBJECT_HANDLE) { return CKR_OK; }
// Signs and decrypts: the result's length stays the room's.
CK_RV Operation(CK_SESSION_HANDLE, CK_BYTE *, CK_ULONG, CK_BYTE *, CK_ULONG *) { return CKR_OK; }
CK_RV DeriveKey(CK_SESSION_HANDLE, CK_MECHANISM *, CK_OBJECT_HANDLE, CK_ATTRIBUTE *, CK_ULONG,
                CK_OBJECT_HANDLE *derived) {
  *derived = 2;
  return CKR_OK;
}
CK_RV GetAttributeValue(CK_SESSION_HANDLE, CK_OBJECT_HANDLE, CK_ATTRIBUTE *, CK_ULONG) {
  return CKR_OK;
}
CK_RV Refuse(CK_SESSION_HANDLE, CK_SESSION_INFO *) { return CKR_DEVICE_ERROR; }

class AllocationsTest : public CardRequestTest, public testing::WithParamInterface<CardRequest> {
 protected:
  AllocationsTest() : CardRequestTest(GetParam()) {
    list_.C_GetSessionInfo = GetSessionInfo;
    list_.C_FindObjectsInit = FindObjectsInit;
    list_.C_FindObjects = FindObjects;
    list_.C_SignInit = OperationInit;
    list_.C_Sign = Operation;
    list_.C_DecryptInit = OperationInit;
    list_.C_Decrypt = Operation;
    list_.C_DeriveKey = DeriveKey;
    list_.C_GetAttributeValue = GetAttributeValue;
    [token_ setP11:&list_];
  }
  ~AllocationsTest() override { [token_ setP11:lindel().functions()]; }

  // Makes the request and returns how often memory was taken meanwhile by this executable's code;
  // Foundation's own is not counted.
  size_t AllocationsOfRun(NSData **result) {
    wrapped::calls().counting = true;
    *result = Run();
    wrapped::calls().counting = false;
    return wrapped::calls().allocations;
  }

  CK_FUNCTION_LIST list_ = {};
  const oslog::Disabled no_default_{OS_LOG_TYPE_DEFAULT};
  const oslog::Disabled no_error_{OS_LOG_TYPE_ERROR};
};

INSTANTIATE_TEST_SUITE_P(All, AllocationsTest, testing::ValuesIn(kCardRequests),
                         [](const auto &info) { return info.param.name; });

TEST_P(AllocationsTest, ARefusedRequestTakesNone) {
  list_.C_GetSessionInfo = Refuse;
  NSData *result = nil;
  EXPECT_EQ(AllocationsOfRun(&result), 0u);
  EXPECT_EQ(result, nil);
  EXPECT_EQ([error_ code], -9);
}

TEST_P(AllocationsTest, ASuccessfulRequestTakesNone) {
  NSData *result = nil;
  EXPECT_EQ(AllocationsOfRun(&result), 0u);
  EXPECT_EQ([result length], 1024u);
}

}  // namespace
}  // namespace token_testing
