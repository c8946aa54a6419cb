#include "adapter/objects/key_facts.h"

#include <cstring>

#include "adapter/testing/card_fixture.h"

namespace kelvrin::adapter {
namespace {

using Mechanisms = std::vector<CK_MECHANISM_TYPE>;

class KeyFactsTest : public CardTest {
 protected:
  KeyFacts Facts(bool is_rsa, const Mechanisms& offered = {}) {
    return ReadKeyFacts(inner_, session_, key_, is_rsa, offered);
  }
  static Bytes List(const Mechanisms& mechanisms) {
    Bytes bytes(mechanisms.size() * sizeof(CK_MECHANISM_TYPE));
    if (!bytes.empty()) std::memcpy(bytes.data(), mechanisms.data(), bytes.size());
    return bytes;
  }

  const CK_OBJECT_HANDLE key_ = Add(CKO_PRIVATE_KEY, {1});
};

TEST_F(KeyFactsTest, WhatTheModuleDoesNotTellIsZeroOrFalse) {
  for (const bool is_rsa : {false, true}) {
    const KeyFacts facts = Facts(is_rsa);
    EXPECT_EQ(facts.size, 0u);
    EXPECT_FALSE(facts.wants_login);
    EXPECT_FALSE(facts.lacks_raw_rsa);
  }
}

TEST_F(KeyFactsTest, SizeIsTheModulusWithoutLeadingZerosOrTheCurves) {
  Bytes modulus(256, 0xab);
  for (const int zeros : {0, 1, 3}) {
    Attribute(key_, CKA_MODULUS) = modulus;
    EXPECT_EQ(Facts(true).size, 256u) << zeros;
    modulus.insert(modulus.begin(), 0);
  }
  Attribute(key_, CKA_MODULUS) = Bytes(4096, 1);
  EXPECT_EQ(Facts(true).size, 4096u);
  Attribute(key_, CKA_MODULUS) = Bytes(4097, 1);
  EXPECT_EQ(Facts(true).size, 0u) << "no key is longer";
  Attribute(key_, CKA_EC_PARAMS) = {0x06, 0x05, 0x2b, 0x81, 0x04, 0x00, 0x22};
  EXPECT_EQ(Facts(false).size, 48u);
}

TEST_F(KeyFactsTest, LoginIsWantedByAFlagOfOneByteThatIsNotFalse) {
  for (const auto& [flag, wants] : std::vector<std::pair<Bytes, bool>>{
           {{0}, false}, {{1}, true}, {{0xff}, true}, {{}, false}, {{1, 1}, false}}) {
    Attribute(key_, CKA_ALWAYS_AUTHENTICATE) = flag;
    EXPECT_EQ(Facts(false).wants_login, wants);
    EXPECT_EQ(Facts(true).wants_login, wants);
  }
}

TEST_F(KeyFactsTest, RawRsaIsLackingWhereAListHasPkcs1Alone) {
  const Mechanisms pkcs = {CKM_RSA_PKCS};
  const Mechanisms both = {CKM_RSA_PKCS, CKM_RSA_X_509};
  const Mechanisms neither = {CKM_ECDSA};
  struct Row {
    Mechanisms slot;
    Mechanisms key;
    bool lacks;
  };
  for (const Row& row :
       {Row{pkcs, {}, true}, Row{both, {}, false}, Row{both, pkcs, true}, Row{both, neither, false},
        Row{neither, {}, false}, Row{pkcs, both, true}, Row{both, {CKM_RSA_X_509}, false}}) {
    Attribute(key_, CKA_ALLOWED_MECHANISMS) = List(row.key);
    EXPECT_EQ(Facts(true, row.slot).lacks_raw_rsa, row.lacks);
    EXPECT_FALSE(Facts(false, row.slot).lacks_raw_rsa) << "of an EC key";
  }
}

TEST_F(KeyFactsTest, OwnListHasOneToTwentyWholeEntries) {
  Mechanisms own(20, CKM_RSA_PKCS);
  own[19] = CKM_ECDSA;
  for (const Mechanisms& list : {own, Mechanisms{CKM_ECDSA}}) {
    Attribute(key_, CKA_ALLOWED_MECHANISMS) = List(list);
    EXPECT_EQ(ReadAllowedMechanisms(inner_, session_, key_), list);
  }
  for (const Bytes& list :
       {Bytes(), List(Mechanisms(21, CKM_RSA_PKCS)), Bytes(12, 1), Bytes(2000, 1)}) {
    Attribute(key_, CKA_ALLOWED_MECHANISMS) = list;
    EXPECT_EQ(ReadAllowedMechanisms(inner_, session_, key_), Mechanisms()) << list.size();
  }
  Erase(key_, CKA_ALLOWED_MECHANISMS);
  EXPECT_EQ(ReadAllowedMechanisms(inner_, session_, key_), Mechanisms());
}

}  // namespace
}  // namespace kelvrin::adapter
