#include "adapter/forwarding.h"

#include <gtest/gtest.h>

#include <array>

#include "adapter/inner_module.h"

namespace kelvrin::adapter {
namespace {

using List = CK_FUNCTION_LIST;

// A list of functions that do nothing, with what a test puts in.
List EmptyList() {
  List list = {};
  list.version = {2, 40};
  return CompleteFunctionList(list);
}

TEST(ForwardingTest, MissingInputsNeverReachTheModule) {
  const List list = EmptyList();  // answers CKR_FUNCTION_NOT_SUPPORTED
  CK_MECHANISM mechanism = {CKM_SHA256, nullptr, 0};
  CK_BYTE byte = 0;
  CK_BYTE* const none = nullptr;
  CK_OBJECT_HANDLE handle = 0;
  CK_ULONG size = 1;
  EXPECT_EQ(Forwarded<&List::C_DigestInit>::Plain(list, 1, nullptr), CKR_ARGUMENTS_BAD);
  EXPECT_EQ(Forwarded<&List::C_EncryptInit>::Plain(list, 1, nullptr, 0), CKR_ARGUMENTS_BAD);
  EXPECT_EQ(Forwarded<&List::C_EncryptInit>::Plain(list, 1, &mechanism, 0),
            CKR_FUNCTION_NOT_SUPPORTED);
  EXPECT_EQ(Forwarded<&List::C_Verify>::Plain(list, 1, &byte, 1, none, 5), CKR_ARGUMENTS_BAD);
  EXPECT_EQ(Forwarded<&List::C_Verify>::Plain(list, 1, none, 1, &byte, 1), CKR_ARGUMENTS_BAD);
  EXPECT_EQ(Forwarded<&List::C_Verify>::Plain(list, 1, none, 0, &byte, 1),
            CKR_FUNCTION_NOT_SUPPORTED);
  EXPECT_EQ(Forwarded<&List::C_InitToken>::Plain(list, 1, none, 0, none), CKR_ARGUMENTS_BAD);
  EXPECT_EQ(Forwarded<&List::C_InitToken>::Plain(list, 1, none, 0, &byte),
            CKR_FUNCTION_NOT_SUPPORTED);
  EXPECT_EQ(Forwarded<&List::C_Encrypt>::Bytes(list, 1, none, 1, &byte, &size), CKR_ARGUMENTS_BAD);
  EXPECT_EQ(Forwarded<&List::C_WrapKey>::Bytes(list, 1, nullptr, 2, 3, &byte, &size),
            CKR_ARGUMENTS_BAD);
  EXPECT_EQ(Forwarded<&List::C_GenerateKey>::Object(list, 1, nullptr, nullptr, 0, &handle),
            CKR_ARGUMENTS_BAD);
}

TEST(ForwardingTest, MissingPlacesForResultsNeverReachTheModule) {
  const List list = EmptyList();
  CK_MECHANISM mechanism = {CKM_AES_KEY_GEN, nullptr, 0};
  CK_BYTE byte = 0;
  CK_OBJECT_HANDLE handle = 0;
  EXPECT_EQ(Forwarded<&List::C_Digest>::Bytes(list, 1, &byte, 1, &byte, nullptr),
            CKR_ARGUMENTS_BAD);
  EXPECT_EQ(Forwarded<&List::C_CreateObject>::Object(list, 1, nullptr, 0, nullptr),
            CKR_ARGUMENTS_BAD);
  EXPECT_EQ(Forwarded<&List::C_GenerateKeyPair>::TwoObjects(list, 1, &mechanism, nullptr, 0,
                                                            nullptr, 0, &handle, nullptr),
            CKR_ARGUMENTS_BAD);
  EXPECT_EQ(Forwarded<&List::C_GenerateKeyPair>::TwoObjects(list, 1, &mechanism, nullptr, 0,
                                                            nullptr, 0, nullptr, &handle),
            CKR_ARGUMENTS_BAD);
  EXPECT_EQ(Forwarded<&List::C_GetSessionInfo>::Record(list, 1, nullptr), CKR_ARGUMENTS_BAD);
  EXPECT_EQ(Forwarded<&List::C_GetObjectSize>::Record(list, 1, 2, nullptr), CKR_ARGUMENTS_BAD);
}

TEST(ForwardingTest, ClaimedLengthBeyondTheRoomNeverReachesTheCaller) {
  List list = EmptyList();
  list.C_Encrypt = [](CK_SESSION_HANDLE, CK_BYTE*, CK_ULONG, CK_BYTE* output,
                      CK_ULONG* size) -> CK_RV {
    output[*size - 1] = 9;
    *size += 1;
    return CKR_OK;
  };
  std::array<CK_BYTE, 4> input = {};
  std::array<CK_BYTE, 4> output = {1, 1, 1, 1};
  CK_ULONG size = output.size();
  EXPECT_EQ(Forwarded<&List::C_Encrypt>::Bytes(list, 1, input.data(), 4, output.data(), &size),
            CKR_DEVICE_ERROR);
  EXPECT_EQ(size, 4u);
  EXPECT_EQ(output, (std::array<CK_BYTE, 4>{1, 1, 1, 1}));
}

TEST(ForwardingTest, OutputMayLieOverItsInput) {
  List list = EmptyList();
  list.C_Encrypt = [](CK_SESSION_HANDLE, CK_BYTE* input, CK_ULONG input_size, CK_BYTE* output,
                      CK_ULONG* size) -> CK_RV {
    for (CK_ULONG i = 0; i < input_size; ++i) output[input_size - 1 - i] = input[i];
    *size = input_size;
    return CKR_OK;
  };
  std::array<CK_BYTE, 3> data = {1, 2, 3};
  CK_ULONG size = data.size();
  EXPECT_EQ(Forwarded<&List::C_Encrypt>::Bytes(list, 1, data.data(), 3, data.data(), &size),
            CKR_OK);
  EXPECT_EQ(data, (std::array<CK_BYTE, 3>{3, 2, 1}));
}

CK_ULONG offered_room = 0;

TEST(ForwardingTest, HandleBeforeTheOutputIsNotTakenForALength) {
  List list = EmptyList();
  list.C_WrapKey = [](CK_SESSION_HANDLE, CK_MECHANISM*, CK_OBJECT_HANDLE, CK_OBJECT_HANDLE,
                      CK_BYTE*, CK_ULONG* size) -> CK_RV {
    offered_room = *size;
    *size = 0;
    return CKR_OK;
  };
  CK_MECHANISM mechanism = {CKM_RSA_PKCS, nullptr, 0};
  CK_BYTE output = 0;
  CK_ULONG size = ~CK_ULONG{0};
  EXPECT_EQ(
      Forwarded<&List::C_WrapKey>::Bytes(list, 1, &mechanism, 2, ~CK_ULONG{0}, &output, &size),
      CKR_OK);
  EXPECT_EQ(offered_room, 65536u);
}

TEST(ForwardingTest, ObjectWithoutAHandleIsADeviceError) {
  List list = EmptyList();
  list.C_CreateObject = [](CK_SESSION_HANDLE, CK_ATTRIBUTE*, CK_ULONG,
                           CK_OBJECT_HANDLE* object) -> CK_RV {
    *object = CK_INVALID_HANDLE;
    return CKR_OK;
  };
  CK_OBJECT_HANDLE object = 55;
  EXPECT_EQ(Forwarded<&List::C_CreateObject>::Object(list, 1, nullptr, 0, &object),
            CKR_DEVICE_ERROR);
  list.C_CreateObject = [](CK_SESSION_HANDLE, CK_ATTRIBUTE*, CK_ULONG,
                           CK_OBJECT_HANDLE* made) -> CK_RV {
    *made = 7;
    return CKR_TEMPLATE_INCOMPLETE;
  };
  EXPECT_EQ(Forwarded<&List::C_CreateObject>::Object(list, 1, nullptr, 0, &object),
            CKR_TEMPLATE_INCOMPLETE);
  EXPECT_EQ(object, 55u);
  list.C_CreateObject = [](CK_SESSION_HANDLE, CK_ATTRIBUTE*, CK_ULONG,
                           CK_OBJECT_HANDLE* made) -> CK_RV {
    *made = 7;
    return CKR_OK;
  };
  EXPECT_EQ(Forwarded<&List::C_CreateObject>::Object(list, 1, nullptr, 0, &object), CKR_OK);
  EXPECT_EQ(object, 7u);
}

CK_OBJECT_HANDLE second_made = 0;

TEST(ForwardingTest, KeyPairIsBothKeysOrNone) {
  List list = EmptyList();
  list.C_GenerateKeyPair = [](CK_SESSION_HANDLE, CK_MECHANISM*, CK_ATTRIBUTE*, CK_ULONG,
                              CK_ATTRIBUTE*, CK_ULONG, CK_OBJECT_HANDLE* first,
                              CK_OBJECT_HANDLE* second) -> CK_RV {
    *first = 7;
    *second = second_made;
    return CKR_OK;
  };
  CK_MECHANISM mechanism = {CKM_EC_KEY_PAIR_GEN, nullptr, 0};
  CK_OBJECT_HANDLE first = 55;
  CK_OBJECT_HANDLE second = 56;
  const auto generate = [&] {
    return Forwarded<&List::C_GenerateKeyPair>::TwoObjects(list, 1, &mechanism, nullptr, 0, nullptr,
                                                           0, &first, &second);
  };
  second_made = CK_INVALID_HANDLE;
  EXPECT_EQ(generate(), CKR_DEVICE_ERROR);
  EXPECT_EQ(first, 55u);
  EXPECT_EQ(second, 56u);
  second_made = 8;
  EXPECT_EQ(generate(), CKR_OK);
  EXPECT_EQ(first, 7u);
  EXPECT_EQ(second, 8u);
}

TEST(ForwardingTest, RecordOfAFailedCallNeverReachesTheCaller) {
  List list = EmptyList();
  list.C_GetSessionInfo = [](CK_SESSION_HANDLE session, CK_SESSION_INFO* info) -> CK_RV {
    info->slotID = 99;
    return session == 1 ? CKR_OK : CKR_SESSION_HANDLE_INVALID;
  };
  CK_SESSION_INFO info = {};
  EXPECT_EQ(Forwarded<&List::C_GetSessionInfo>::Record(list, 2, &info), CKR_SESSION_HANDLE_INVALID);
  EXPECT_EQ(info.slotID, 0u);
  EXPECT_EQ(Forwarded<&List::C_GetSessionInfo>::Record(list, 1, &info), CKR_OK);
  EXPECT_EQ(info.slotID, 99u);
}

}  // namespace
}  // namespace kelvrin::adapter
