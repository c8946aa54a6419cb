// Handles whose objects another program moved, changed or deleted.
#include <gtest/gtest.h>

#include <array>
#include <string>

#include "adapter/attributes.h"
#include "adapter/testing/token_objects_fixture.h"

namespace kelvrin::adapter {
namespace {

class RenewedHandlesTest : public TokenObjectsTest {
 protected:
  // The object gets another handle, as when another program deletes and makes it anew.
  CK_OBJECT_HANDLE Move(CK_OBJECT_HANDLE object) {
    const auto moved = fake_.Add(fake_.objects[object]);
    fake_.objects.erase(object);
    return moved;
  }
  Handles FindWith(CK_ATTRIBUTE more, CK_BYTE id) {
    CK_ATTRIBUTE wanted[] = {{CKA_ID, &id, 1}, more};
    Handles found;
    EXPECT_EQ(objects_.Find(session_, wanted, &found), CKR_OK);
    return found;
  }
};

TEST_F(RenewedHandlesTest, RefusedHandleIsSearchedForOnceMore) {
  const auto key = Add(CKO_PRIVATE_KEY, {1});
  EXPECT_EQ(objects_.FindAgain(session_, key), CK_INVALID_HANDLE) << "it was never found";
  Find(CKO_PRIVATE_KEY, {1});
  fake_.objects.erase(key);
  const auto other = Add(CKO_PRIVATE_KEY, {1});
  EXPECT_EQ(objects_.FindAgain(session_, key), other);
  fake_.objects.erase(other);
  EXPECT_EQ(objects_.FindAgain(session_, other), CK_INVALID_HANDLE);
}

TEST_F(RenewedHandlesTest, HandleWhoseKeyChangedStandsForTheKeyThatWasAskedFor) {
  const auto key = Add(CKO_PRIVATE_KEY, {1});
  EXPECT_EQ(objects_.Current(session_, key), key) << "it was never found";
  Find(CKO_PRIVATE_KEY, {1});
  EXPECT_EQ(objects_.Current(session_, key), key);
  fake_.objects[key][CKA_ID] = {2};
  const auto other = Add(CKO_PRIVATE_KEY, {1});
  LetTheLookGrowOld();
  EXPECT_EQ(objects_.Current(session_, key), other);
  EXPECT_EQ(Find(CKO_PRIVATE_KEY, {1}), Handles{other});
  fake_.objects[other][CKA_ID] = {3};
  LetTheLookGrowOld();
  EXPECT_EQ(objects_.Current(session_, other), CK_INVALID_HANDLE);
}

TEST_F(RenewedHandlesTest, WithoutTheRuleAHandleIsItsObject) {
  rules_.SwitchOff(Rule::kRenewedHandles);
  const auto key = Add(CKO_PRIVATE_KEY, {1});
  Find(CKO_PRIVATE_KEY, {1});
  fake_.objects[key][CKA_ID] = {2};
  LetTheLookGrowOld();
  EXPECT_EQ(objects_.Current(session_, key), key);
  EXPECT_EQ(objects_.FindAgain(session_, key), CK_INVALID_HANDLE);
}

// Nobody gets another key by asking twice, nor by what happens in between.
TEST_F(RenewedHandlesTest, HandleStandsForWhatWasAskedForHoweverOftenItIsUsed) {
  const auto key = Add(CKO_PRIVATE_KEY, {1});
  Find(CKO_PRIVATE_KEY, {1});
  fake_.objects[key][CKA_ID] = {9};
  LetTheLookGrowOld();
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(objects_.Current(session_, key), CK_INVALID_HANDLE) << i;
    objects_.Forget();
  }
  EXPECT_EQ(Find(CKO_PRIVATE_KEY, {9}), Handles{key});
  EXPECT_EQ(objects_.Current(session_, key), key) << "now it was asked for by that CKA_ID";
}

TEST_F(RenewedHandlesTest, KeysThatSwapTheirIdsAreNotConfused) {
  const auto first = Add(CKO_PRIVATE_KEY, {1});
  const auto second = Add(CKO_PRIVATE_KEY, {2});
  Find(CKO_PRIVATE_KEY, {1});
  Find(CKO_PRIVATE_KEY, {2});
  fake_.objects[first][CKA_ID].swap(fake_.objects[second][CKA_ID]);
  LetTheLookGrowOld();
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(objects_.Current(session_, first), second) << i;
    EXPECT_EQ(objects_.Current(session_, second), first) << i;
    EXPECT_EQ(objects_.FindAgain(session_, first), second) << i;
  }
}

TEST_F(RenewedHandlesTest, HandleThatIsRefusedInItsNewPlaceIsNotTakenForItsNewNeighbour) {
  const auto first = Add(CKO_PRIVATE_KEY, {1});
  const auto second = Add(CKO_PRIVATE_KEY, {2});
  Find(CKO_PRIVATE_KEY, {1});
  Find(CKO_PRIVATE_KEY, {2});
  fake_.objects[first][CKA_ID].swap(fake_.objects[second][CKA_ID]);
  LetTheLookGrowOld();
  Handles used;
  EXPECT_EQ(objects_.WithCurrent(session_, first,
                                 [&](CK_OBJECT_HANDLE key) -> CK_RV {
                                   used.push_back(key);
                                   return CKR_KEY_HANDLE_INVALID;
                                 }),
            CKR_KEY_HANDLE_INVALID);
  EXPECT_EQ(used, (Handles{second, second}));
}

TEST_F(RenewedHandlesTest, ForgettingTheObjectsCostsALookAndNoSearch) {
  const auto key = Add(CKO_PRIVATE_KEY, {1});
  Find(CKO_PRIVATE_KEY, {1});
  objects_.Forget();
  EXPECT_EQ(objects_.Current(session_, key), key);
  EXPECT_EQ(Searches(), 1u);
}

TEST_F(RenewedHandlesTest, RememberedKeyCostsNoCall) {
  const auto key = Add(CKO_PRIVATE_KEY, {1});
  Find(CKO_PRIVATE_KEY, {1});
  const std::size_t looks = fake_.Calls("C_GetAttributeValue");
  Find(CKO_PRIVATE_KEY, {1});
  EXPECT_EQ(objects_.Current(session_, key), key);
  EXPECT_EQ(fake_.Calls("C_GetAttributeValue"), looks);
}

TEST_F(RenewedHandlesTest, SwitchingOffTheMemoryLeavesThem) {
  rules_.SwitchOff(Rule::kSearchMemory);
  const auto key = Add(CKO_PRIVATE_KEY, {1});
  const auto certificate = Add(CKO_CERTIFICATE, {1});
  Find(CKO_PRIVATE_KEY, {1});
  const std::size_t looks = fake_.Calls("C_GetAttributeValue");
  EXPECT_EQ(objects_.Current(session_, key), key);
  EXPECT_EQ(fake_.Calls("C_GetAttributeValue"), looks) << "it was just found";
  FindAllOf(CKO_CERTIFICATE);
  const auto moved = Move(key);
  const auto moved_certificate = Move(certificate);
  EXPECT_EQ(objects_.FindAgain(session_, certificate), moved_certificate);
  EXPECT_EQ(objects_.FindAgain(session_, key), moved);
  LetTheLookGrowOld();
  EXPECT_EQ(objects_.Current(session_, key), moved);
}

TEST_F(RenewedHandlesTest, OtherSearchesForAnIdCountToo) {
  CK_OBJECT_CLASS object_class = CKO_SECRET_KEY;
  CK_BYTE label = 'x';
  for (const CK_ATTRIBUTE& more : {CK_ATTRIBUTE{CKA_CLASS, &object_class, sizeof(object_class)},
                                   CK_ATTRIBUTE{CKA_LABEL, &label, sizeof(label)}}) {
    const auto key = Add(CKO_SECRET_KEY, {1});
    EXPECT_EQ(FindWith(more, 1), Handles{key});
    EXPECT_EQ(objects_.Current(session_, key), key);
    fake_.objects[key][CKA_ID] = {9};
    LetTheLookGrowOld();
    EXPECT_EQ(objects_.Current(session_, key), CK_INVALID_HANDLE);
    fake_.objects.erase(key);
  }
}

// What cannot be seen is not taken for a change.
TEST_F(RenewedHandlesTest, ObjectThatHidesItsIdIsStillWhatWasAskedFor) {
  const auto key = Add(CKO_SECRET_KEY, {1});
  CK_BYTE label = 'x';
  EXPECT_EQ(FindWith({CKA_LABEL, &label, sizeof(label)}, 1), Handles{key});
  fake_.objects[key].erase(CKA_ID);
  LetTheLookGrowOld();
  EXPECT_EQ(objects_.Current(session_, key), key);
}

TEST_F(RenewedHandlesTest, WhoListsObjectsMeansWhatHeSees) {
  const auto key = Add(CKO_PRIVATE_KEY, {1});
  Find(CKO_PRIVATE_KEY, {1});
  EXPECT_EQ(FindAllOf(CKO_PRIVATE_KEY), Handles{key});
  fake_.objects[key][CKA_ID] = {9};
  LetTheLookGrowOld();
  EXPECT_EQ(objects_.Current(session_, key), CK_INVALID_HANDLE) << "it was asked for by its CKA_ID";
  EXPECT_EQ(FindAllOf(CKO_PRIVATE_KEY), Handles{key});
  EXPECT_EQ(objects_.Current(session_, key), key);
}

TEST_F(RenewedHandlesTest, WithoutTheRuleAListCostsNoLook) {
  rules_ = Rules::Standard();
  const auto key = Add(CKO_PRIVATE_KEY, {1});
  Find(CKO_PRIVATE_KEY, {1});
  LetTheLookGrowOld();
  const std::size_t looks = fake_.Calls("C_GetAttributeValue");
  EXPECT_EQ(FindAllOf(CKO_PRIVATE_KEY), Handles{key});
  EXPECT_EQ(fake_.Calls("C_GetAttributeValue"), looks);
}

TEST_F(RenewedHandlesTest, HandleOfAnObjectThatTheCallerMadeIsItsObject) {
  const auto key = Add(CKO_PRIVATE_KEY, {1});
  Find(CKO_PRIVATE_KEY, {1});
  objects_.Forget();
  fake_.objects[key][CKA_ID] = {9};
  objects_.TakeAsItIs(key);
  EXPECT_EQ(objects_.Current(session_, key), key);
}

// All that is answered in the module's place is, under the new handle too, with the room there was.
TEST_F(RenewedHandlesTest, AttributesUnderTheNewHandleFollowTheRules) {
  const FakeModule::Object object = {{CKA_CLASS, FakeModule::Number(CKO_PUBLIC_KEY)},
                                     {CKA_KEY_TYPE, FakeModule::Number(CKK_EC)},
                                     {CKA_ID, {1}},
                                     {CKA_LABEL, {'M', 0xc3, 0xbc}},
                                     {CKA_ENCRYPT, FakeModule::Flag(true)},
                                     {CKA_VERIFY, FakeModule::Flag(true)},
                                     {CKA_ALLOWED_MECHANISMS, {}}};
  const auto key = fake_.Add(object);
  Find(CKO_PUBLIC_KEY, {1});
  Move(key);
  // Some modules spoil the lengths for a handle that they do not know.
  functions_.C_GetAttributeValue = [](CK_SESSION_HANDLE session, CK_OBJECT_HANDLE handle,
                                      CK_ATTRIBUTE* attributes, CK_ULONG count) -> CK_RV {
    const CK_RV result =
        FakeModule::functions().C_GetAttributeValue(session, handle, attributes, count);
    for (CK_ULONG i = 0; result == CKR_OBJECT_HANDLE_INVALID && i < count; ++i) {
      attributes[i].ulValueLen = CK_UNAVAILABLE_INFORMATION;
    }
    return result;
  };
  CK_BBOOL encrypts = CK_TRUE;
  CK_BBOOL verifies = CK_FALSE;
  std::array<char, 64> label = {};
  std::array<CK_MECHANISM_TYPE, 20> mechanisms = {};
  std::array<CK_ATTRIBUTE, 4> attributes = {
      {{CKA_ENCRYPT, &encrypts, sizeof(encrypts)},
       {CKA_VERIFY, &verifies, sizeof(verifies)},
       {CKA_LABEL, label.data(), label.size()},
       {CKA_ALLOWED_MECHANISMS, mechanisms.data(), sizeof(mechanisms)}}};
  EXPECT_EQ(GetAttributes(objects_, session_, key, attributes), CKR_OK);
  EXPECT_EQ(encrypts, CK_FALSE);
  EXPECT_EQ(verifies, CK_TRUE);
  EXPECT_EQ(std::string(label.data(), attributes[2].ulValueLen), "Mue");
  EXPECT_GT(attributes[3].ulValueLen, 0u);
  EXPECT_EQ(mechanisms[0], CKM_ECDSA);
}

}  // namespace
}  // namespace kelvrin::adapter
