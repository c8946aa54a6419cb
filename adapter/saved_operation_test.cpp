// Operations that a caller saves and brings back, through the built library in front of a module
// that can: SoftHSM with what it lacks put around it.
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "adapter/testing/copies_fixture.h"

namespace kelvrin::adapter {
namespace {

// A signature under way: what it was begun with, and its data so far.
struct Begun {
  CK_MECHANISM_TYPE mechanism = 0;
  CK_OBJECT_HANDLE key = 0;
  Bytes data;
};

CK_FUNCTION_LIST* softhsm = nullptr;
std::map<CK_SESSION_HANDLE, Begun> begun;
std::map<CK_BYTE, Begun> saved;

CK_RV SignInit(CK_SESSION_HANDLE session, CK_MECHANISM* mechanism, CK_OBJECT_HANDLE key) {
  const CK_RV result = softhsm->C_SignInit(session, mechanism, key);
  if (result == CKR_OK)
    begun[session] = {.mechanism = mechanism->mechanism, .key = key, .data = {}};
  return result;
}

CK_RV SignUpdate(CK_SESSION_HANDLE session, CK_BYTE* part, CK_ULONG size) {
  begun[session].data.insert(begun[session].data.end(), part, part + size);
  return softhsm->C_SignUpdate(session, part, size);
}

CK_RV CloseSession(CK_SESSION_HANDLE session) {
  begun.erase(session);
  return softhsm->C_CloseSession(session);
}

CK_RV GetState(CK_SESSION_HANDLE session, CK_BYTE* state, CK_ULONG* size) {
  if (!begun.contains(session)) return CKR_OPERATION_NOT_INITIALIZED;
  *size = 1;
  if (state == nullptr) return CKR_OK;
  *state = static_cast<CK_BYTE>(saved.size());
  saved[*state] = begun[session];
  return CKR_OK;
}

CK_RV SetState(CK_SESSION_HANDLE session, CK_BYTE* state, CK_ULONG, CK_OBJECT_HANDLE,
               CK_OBJECT_HANDLE key) {
  const auto found = saved.find(*state);
  if (found == saved.end()) return CKR_SAVED_STATE_INVALID;
  Begun& operation = found->second;
  CK_MECHANISM mechanism = {operation.mechanism, nullptr, 0};
  const CK_RV result = softhsm->C_SignInit(session, &mechanism, key);
  if (result != CKR_OK) return result;
  begun[session] = operation;
  return softhsm->C_SignUpdate(session, operation.data.data(), operation.data.size());
}

class SavedOperationTest : public CopiesTest {
 protected:
  void Start(const std::string& lines, const std::string& name = "libX") {
    softhsm = softhsm_;
    begun.clear();
    saved.clear();
    module_ = *softhsm_;
    module_.C_SignInit = SignInit;
    module_.C_SignUpdate = SignUpdate;
    module_.C_CloseSession = CloseSession;
    module_.C_GetOperationState = GetState;
    module_.C_SetOperationState = SetState;
    watch_.behind = &module_;
    card_ = Card(Load(name, lines));
    BringUp(&card_);
    key_ = card_.Find(CKO_PRIVATE_KEY, 1);
  }
  CK_RV Update(CK_BYTE byte) const {
    Bytes part(10, byte);
    return card_.p11->C_SignUpdate(card_.session, part.data(), part.size());
  }
  CK_RV Final(Bytes* signature) const {
    signature->assign(256, 0);
    CK_ULONG size = signature->size();
    return card_.p11->C_SignFinal(card_.session, signature->data(), &size);
  }
  CK_RV Save(CK_BYTE* state) const {
    CK_ULONG size = 1;
    return card_.p11->C_GetOperationState(card_.session, state, &size);
  }
  CK_RV BringBack(CK_BYTE state) const {
    return card_.p11->C_SetOperationState(card_.session, &state, 1, 0, key_);
  }
  // The signature of the two parts, made at one go.
  Bytes Whole() const {
    Bytes signature;
    EXPECT_EQ(card_.SignInit(CKM_SHA256_RSA_PKCS, key_), CKR_OK);
    EXPECT_EQ(Update(1), CKR_OK);
    EXPECT_EQ(Update(2), CKR_OK);
    EXPECT_EQ(Final(&signature), CKR_OK);
    return signature;
  }

  CK_FUNCTION_LIST module_ = {};
  Card card_{nullptr};
  CK_OBJECT_HANDLE key_ = 0;
};

TEST_F(SavedOperationTest, SignatureGoesOnWhereItWasSaved) {
  const std::map<std::string, std::string> configurations = {
      {"libX", "profile = standard\n"}, {"libY", ""}, {"libZ", "rules-off = worker-sessions\n"}};
  for (const auto& [name, lines] : configurations) {
    Start(lines, name);
    const Bytes expected = Whole();
    CK_BYTE state = 99;
    Bytes signature;
    ASSERT_EQ(card_.SignInit(CKM_SHA256_RSA_PKCS, key_), CKR_OK) << lines;
    ASSERT_EQ(Update(1), CKR_OK);
    ASSERT_EQ(Save(&state), CKR_OK) << lines;
    ASSERT_EQ(Update(2), CKR_OK);
    ASSERT_EQ(Final(&signature), CKR_OK);
    EXPECT_EQ(signature, expected) << lines << "saving changes nothing";
    ASSERT_EQ(BringBack(state), CKR_OK) << lines;
    ASSERT_EQ(Update(2), CKR_OK) << lines;
    ASSERT_EQ(Final(&signature), CKR_OK) << lines;
    EXPECT_EQ(signature, expected) << lines;
    EXPECT_EQ(Update(2), CKR_OPERATION_NOT_INITIALIZED) << lines;
    EXPECT_EQ(Whole(), expected) << lines << "afterwards all is as ever";
    EXPECT_EQ(card_.p11->C_Finalize(nullptr), CKR_OK);
  }
}

TEST_F(SavedOperationTest, WhatIsBroughtBackTakesThePlaceOfWhatIsUnderWay) {
  Start("profile = standard\n");
  const Bytes expected = Whole();
  CK_BYTE state = 99;
  Bytes signature;
  ASSERT_EQ(card_.SignInit(CKM_SHA256_RSA_PKCS, key_), CKR_OK);
  ASSERT_EQ(Update(1), CKR_OK);
  ASSERT_EQ(Save(&state), CKR_OK);
  ASSERT_EQ(Update(3), CKR_OK);
  EXPECT_EQ(BringBack(77), CKR_SAVED_STATE_INVALID);
  ASSERT_EQ(Update(4), CKR_OK) << "a state that is none leaves the other alone";
  ASSERT_EQ(BringBack(state), CKR_OK);
  ASSERT_EQ(Update(2), CKR_OK);
  ASSERT_EQ(Final(&signature), CKR_OK);
  EXPECT_EQ(signature, expected);
  EXPECT_EQ(Whole(), expected) << "the other one is over";
  EXPECT_EQ(card_.p11->C_Finalize(nullptr), CKR_OK);
}

TEST_F(SavedOperationTest, OperationThatTheAdapterHasAPartInIsNotSaved) {
  Start("");
  CK_BYTE state = 99;
  EXPECT_EQ(Save(&state), CKR_OPERATION_NOT_INITIALIZED);
  ASSERT_EQ(card_.SignInit(CKM_ECDSA, card_.Find(CKO_PRIVATE_KEY, 2)), CKR_OK);
  EXPECT_EQ(Save(&state), CKR_STATE_UNSAVEABLE);
  EXPECT_EQ(state, 99);
  Bytes signature;
  EXPECT_EQ(card_.Sign(Bytes(32, 7), &signature), CKR_OK) << "it goes on";
  EXPECT_EQ(card_.p11->C_Finalize(nullptr), CKR_OK);
}

}  // namespace
}  // namespace kelvrin::adapter
