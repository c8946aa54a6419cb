#include "adapter/objects/key_facts.h"

#include "adapter/testing/card_fixture.h"

namespace kelvrin::adapter {
namespace {

class KeyFactsTest : public CardTest {
 protected:
  KeyFacts Facts(bool is_rsa, const Mechanisms& offered = {}) {
    return ReadKeyFacts(inner_, session_, key_, is_rsa, offered);
  }

  const CK_OBJECT_HANDLE key_ = Add(CKO_PRIVATE_KEY, {1});
};

TEST_F(KeyFactsTest, SizeIsTheModulusWithoutLeadingZerosOrTheCurves) {
  EXPECT_EQ(Facts(true).size, 0u) << "not told";
  EXPECT_EQ(Facts(false).size, 0u) << "not told";
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
  EXPECT_FALSE(Facts(true).wants_login) << "not told";
  for (const auto& [flag, wants] : std::vector<std::pair<Bytes, bool>>{
           {{0}, false}, {{1}, true}, {{0xff}, true}, {{}, false}, {{1, 1}, false}}) {
    Attribute(key_, CKA_ALWAYS_AUTHENTICATE) = flag;
    EXPECT_EQ(Facts(false).wants_login, wants) << testing::PrintToString(flag);
    EXPECT_EQ(Facts(true).wants_login, wants) << testing::PrintToString(flag);
  }
}

TEST_F(KeyFactsTest, RawRsaIsLackingWhereAListHasPkcs1Alone) {
  const Mechanisms pkcs = {CKM_RSA_PKCS};
  const Mechanisms both = {CKM_RSA_PKCS, CKM_RSA_X_509};
  const Mechanisms neither = {CKM_ECDSA};
  struct Row {
    const char* name;
    Mechanisms slot;
    Mechanisms key;
    bool lacks;
  };
  for (const Row& row :
       {Row{"slot has PKCS#1", pkcs, {}, true}, Row{"slot has both", both, {}, false},
        Row{"key has PKCS#1", both, pkcs, true}, Row{"key has neither", both, neither, false},
        Row{"slot has neither", neither, {}, false}, Row{"key alone has both", pkcs, both, true},
        Row{"key has raw RSA", both, {CKM_RSA_X_509}, false}}) {
    Attribute(key_, CKA_ALLOWED_MECHANISMS) = List(row.key);
    EXPECT_EQ(Facts(true, row.slot).lacks_raw_rsa, row.lacks) << row.name;
    EXPECT_FALSE(Facts(false, row.slot).lacks_raw_rsa) << "an EC key: " << row.name;
  }
}

TEST_F(KeyFactsTest, OwnListHasOneToTwentyWholeEntries) {
  EXPECT_EQ(ReadAllowedMechanisms(inner_, session_, key_), Mechanisms()) << "not told";
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
}

}  // namespace
}  // namespace kelvrin::adapter
