// Objects that come and go through the adapter: derived, made, changed, destroyed.
#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "adapter/testing/adapter_fixture.h"

namespace kelvrin::adapter {
namespace {

class AdapterObjectsTest : public AdapterTest {
 protected:
  void Start() {
    ASSERT_EQ(adapter_.Initialize(nullptr), CKR_OK);
    session_ = Open();
  }
  CK_OBJECT_HANDLE AddKey(CK_BYTE id) {
    return fake_.Add({{CKA_CLASS, FakeModule::Number(CKO_PRIVATE_KEY)}, {CKA_ID, {id}}});
  }
  CK_RV DeriveWith(CK_OBJECT_HANDLE base_key, bool has_template, CK_OBJECT_HANDLE* key,
                   CK_MECHANISM_TYPE type = CKM_DH_PKCS_DERIVE) {
    CK_BBOOL no = CK_FALSE;
    CK_ATTRIBUTE attribute = {CKA_TOKEN, &no, sizeof(no)};
    CK_MECHANISM mechanism = {type, nullptr, 0};
    return adapter_.DeriveKey(session_, &mechanism, base_key, &attribute, has_template ? 1 : 0,
                              key);
  }
  std::vector<CK_OBJECT_HANDLE> Find(CK_OBJECT_CLASS object_class, CK_BYTE id) {
    CK_ATTRIBUTE wanted[] = {{CKA_CLASS, &object_class, sizeof(object_class)}, {CKA_ID, &id, 1}};
    EXPECT_EQ(adapter_.FindObjectsInit(session_, wanted, 2), CKR_OK);
    std::vector<CK_OBJECT_HANDLE> found(10);
    CK_ULONG count = 0;
    EXPECT_EQ(adapter_.FindObjects(session_, found.data(), found.size(), &count), CKR_OK);
    found.resize(count);
    return found;
  }

  CK_SESSION_HANDLE session_ = 0;
};

// A module may give the handle of a secret that is gone to something else.
TEST_F(AdapterObjectsTest, WhatHasTheHandleOfADerivedKeyThatIsGoneIsNotDestroyed) {
  Start();
  const FakeModule::Object token_key = {{CKA_CLASS, FakeModule::Number(CKO_PRIVATE_KEY)},
                                        {CKA_TOKEN, FakeModule::Flag(false)}};
  const FakeModule::Object token_secret = {{CKA_CLASS, FakeModule::Number(CKO_SECRET_KEY)},
                                           {CKA_TOKEN, FakeModule::Flag(true)}};
  const FakeModule::Object says_nothing = {{CKA_CLASS, FakeModule::Number(CKO_SECRET_KEY)}};
  for (const FakeModule::Object& other : {token_key, token_secret, says_nothing}) {
    const CK_OBJECT_HANDLE derived = Derive(session_);
    fake_.objects[derived] = other;
    Derive(session_);
    EXPECT_TRUE(fake_.objects.contains(derived));
  }
}

TEST_F(AdapterObjectsTest, DerivedKeyOfAnotherTokenIsForgotten) {
  Start();
  const CK_OBJECT_HANDLE derived = Derive(session_);
  fake_.slots[0].serial = "0002";
  Derive(session_);
  EXPECT_TRUE(fake_.objects.contains(derived)) << "on that token it is another's";
  Derive(session_);
  EXPECT_EQ(fake_.objects.size(), 2u);
}

TEST_F(AdapterObjectsTest, HandleThatComesBackIsTheNewObjects) {
  Start();
  const CK_OBJECT_HANDLE derived = Derive(session_);
  adapter_.TakeAsItIs(derived);
  Derive(session_);
  EXPECT_TRUE(fake_.objects.contains(derived));
  const CK_OBJECT_HANDLE key = AddKey(1);
  Find(CKO_PRIVATE_KEY, 1);
  fake_.objects[key][CKA_ID] = {2};
  adapter_.ForgetObjects();
  CK_OBJECT_HANDLE made = 0;
  EXPECT_EQ(DeriveWith(key, true, &made), CKR_KEY_HANDLE_INVALID) << "it was asked for by its id";
  adapter_.TakeAsItIs(key);
  EXPECT_EQ(DeriveWith(key, true, &made), CKR_OK);
}

// The caller means by a handle what he derived last, not what he once searched for.
TEST_F(AdapterObjectsTest, HandleOfADerivedKeyThatWasAnotherObjectsIsTheDerivedKeys) {
  Start();
  for (const bool has_template : {false, true}) {
    const CK_OBJECT_HANDLE next = AddKey(2) + 1;
    fake_.objects[next] = {{CKA_CLASS, FakeModule::Number(CKO_PRIVATE_KEY)}, {CKA_ID, {1}}};
    EXPECT_EQ(Find(CKO_PRIVATE_KEY, 1), std::vector{next});
    fake_.objects.erase(next);
    adapter_.ForgetObjects();
    CK_OBJECT_HANDLE derived = 0;
    ASSERT_EQ(DeriveWith(2, has_template, &derived), CKR_OK);
    ASSERT_EQ(derived, next);
    CK_OBJECT_HANDLE another = 0;
    EXPECT_EQ(DeriveWith(derived, true, &another), CKR_OK) << has_template;
  }
}

TEST_F(AdapterObjectsTest, KeyThatTheCallerGaveAnotherIdIsStillTheOneHeMeans) {
  Start();
  const CK_OBJECT_HANDLE key = AddKey(1);
  Find(CKO_PRIVATE_KEY, 1);
  CK_BYTE label = 'x';
  CK_ATTRIBUTE attribute = {CKA_LABEL, &label, sizeof(label)};
  ASSERT_EQ(adapter_.SetAttributeValue(session_, key, &attribute, 1), CKR_OK);
  fake_.objects[key][CKA_ID] = {2};
  CK_OBJECT_HANDLE made = 0;
  EXPECT_EQ(DeriveWith(key, false, &made), CKR_KEY_HANDLE_INVALID) << "he did not change that";
  CK_BYTE id = 3;
  attribute = {CKA_ID, &id, sizeof(id)};
  fake_.FailNext("C_SetAttributeValue", CKR_ATTRIBUTE_READ_ONLY);
  EXPECT_EQ(adapter_.SetAttributeValue(session_, key, &attribute, 1), CKR_ATTRIBUTE_READ_ONLY);
  EXPECT_EQ(DeriveWith(key, false, &made), CKR_KEY_HANDLE_INVALID);
  EXPECT_EQ(adapter_.SetAttributeValue(session_, key, &attribute, 1), CKR_OK);
  EXPECT_EQ(DeriveWith(key, false, &made), CKR_OK);
  EXPECT_EQ(adapter_.SetAttributeValue(session_, key, nullptr, 1), CKR_ARGUMENTS_BAD);
}

TEST_F(AdapterObjectsTest, DerivationWithARefusedHandleIsTriedWithWhatIsFoundNow) {
  for (const bool has_template : {false, true}) {
    Start();
    const CK_OBJECT_HANDLE key = AddKey(1);
    Find(CKO_PRIVATE_KEY, 1);
    const CK_OBJECT_HANDLE moved = fake_.Add(fake_.objects[key]);
    fake_.objects.erase(key);
    fake_.derive_key = moved;
    CK_OBJECT_HANDLE made = 0;
    EXPECT_EQ(DeriveWith(key, has_template, &made), CKR_OK);
    fake_.derive_key = made;
    EXPECT_EQ(DeriveWith(moved, has_template, &made), CKR_KEY_HANDLE_INVALID);
    fake_.derive_key.reset();
    fake_.objects.clear();
    adapter_.Finalize(nullptr);
  }
}

TEST_F(AdapterObjectsTest, KeysThatComeInTheParameterNeedNoPlaceForAHandle) {
  for (const Rules& rules : {Rules::Extension(), Rules::Standard()}) {
    config_.rules = rules;
    Start();
    EXPECT_EQ(DeriveWith(2, true, nullptr, CKM_TLS_KEY_AND_MAC_DERIVE), CKR_OK);
    EXPECT_FALSE(fake_.has_derive_place);
    EXPECT_EQ(DeriveWith(2, false, nullptr, CKM_SSL3_KEY_AND_MAC_DERIVE), CKR_OK);
    EXPECT_TRUE(fake_.derive_template.empty());
    CK_OBJECT_HANDLE key = 5;
    EXPECT_EQ(DeriveWith(2, true, &key), CKR_OK);
    EXPECT_TRUE(fake_.has_derive_place);
    adapter_.Finalize(nullptr);
  }
}

TEST_F(AdapterObjectsTest, DerivationThatGivesNoHandleIsAFailure) {
  Start();
  fake_.gives_no_handle = true;
  CK_OBJECT_HANDLE key = 5;
  EXPECT_EQ(DeriveWith(2, true, &key), CKR_DEVICE_ERROR);
  EXPECT_EQ(DeriveWith(2, false, &key), CKR_DEVICE_ERROR);
  EXPECT_EQ(key, 5u);
  EXPECT_EQ(DeriveWith(2, true, &key, CKM_TLS_KEY_AND_MAC_DERIVE), CKR_OK);
}

// What a conforming caller derives or closes he sees in his next search.
TEST_F(AdapterObjectsTest, DerivedObjectsAndThoseOfAClosedSessionAreSearchedForAnew) {
  for (const Rules& rules : {Rules::Extension(), Rules::Standard()}) {
    config_.rules = rules;
    Start();
    const FakeModule::Object secret = {{CKA_CLASS, FakeModule::Number(CKO_SECRET_KEY)},
                                       {CKA_ID, {1}}};
    const CK_OBJECT_HANDLE first = fake_.Add(secret);
    const CK_SESSION_HANDLE other = Open();
    EXPECT_EQ(Find(CKO_SECRET_KEY, 1).size(), 1u);
    CK_OBJECT_HANDLE derived = 0;
    ASSERT_EQ(DeriveWith(2, true, &derived), CKR_OK);
    fake_.objects[derived] = secret;
    EXPECT_EQ(Find(CKO_SECRET_KEY, 1).size(), 2u);
    fake_.objects.erase(first);
    EXPECT_EQ(adapter_.CloseSession(other), CKR_OK);
    EXPECT_EQ(Find(CKO_SECRET_KEY, 1).size(), 1u);
    fake_.objects.clear();
    adapter_.Finalize(nullptr);
  }
}

}  // namespace
}  // namespace kelvrin::adapter
