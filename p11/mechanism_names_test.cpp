// The values are written out here as the standard gives them, independent of its header.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>

#include "p11/diagnostics.h"
#include "tests/module/wrapped_calls.h"

namespace {

const std::map<CK_MECHANISM_TYPE, std::string> kMechanismNames = {
    {0x0, "CKM_RSA_PKCS_KEY_PAIR_GEN"},
    {0x1, "CKM_RSA_PKCS"},
    {0x2, "CKM_RSA_9796"},
    {0x3, "CKM_RSA_X_509"},
    {0x4, "CKM_MD2_RSA_PKCS"},
    {0x5, "CKM_MD5_RSA_PKCS"},
    {0x6, "CKM_SHA1_RSA_PKCS"},
    {0x7, "CKM_RIPEMD128_RSA_PKCS"},
    {0x8, "CKM_RIPEMD160_RSA_PKCS"},
    {0x9, "CKM_RSA_PKCS_OAEP"},
    {0xA, "CKM_RSA_X9_31_KEY_PAIR_GEN"},
    {0xB, "CKM_RSA_X9_31"},
    {0xC, "CKM_SHA1_RSA_X9_31"},
    {0xD, "CKM_RSA_PKCS_PSS"},
    {0xE, "CKM_SHA1_RSA_PKCS_PSS"},
    {0x10, "CKM_DSA_KEY_PAIR_GEN"},
    {0x11, "CKM_DSA"},
    {0x12, "CKM_DSA_SHA1"},
    {0x20, "CKM_DH_PKCS_KEY_PAIR_GEN"},
    {0x21, "CKM_DH_PKCS_DERIVE"},
    {0x30, "CKM_X9_42_DH_KEY_PAIR_GEN"},
    {0x31, "CKM_X9_42_DH_DERIVE"},
    {0x32, "CKM_X9_42_DH_HYBRID_DERIVE"},
    {0x33, "CKM_X9_42_MQV_DERIVE"},
    {0x40, "CKM_SHA256_RSA_PKCS"},
    {0x41, "CKM_SHA384_RSA_PKCS"},
    {0x42, "CKM_SHA512_RSA_PKCS"},
    {0x43, "CKM_SHA256_RSA_PKCS_PSS"},
    {0x44, "CKM_SHA384_RSA_PKCS_PSS"},
    {0x45, "CKM_SHA512_RSA_PKCS_PSS"},
    {0x100, "CKM_RC2_KEY_GEN"},
    {0x101, "CKM_RC2_ECB"},
    {0x102, "CKM_RC2_CBC"},
    {0x103, "CKM_RC2_MAC"},
    {0x104, "CKM_RC2_MAC_GENERAL"},
    {0x105, "CKM_RC2_CBC_PAD"},
    {0x110, "CKM_RC4_KEY_GEN"},
    {0x111, "CKM_RC4"},
    {0x120, "CKM_DES_KEY_GEN"},
    {0x121, "CKM_DES_ECB"},
    {0x122, "CKM_DES_CBC"},
    {0x123, "CKM_DES_MAC"},
    {0x124, "CKM_DES_MAC_GENERAL"},
    {0x125, "CKM_DES_CBC_PAD"},
    {0x130, "CKM_DES2_KEY_GEN"},
    {0x131, "CKM_DES3_KEY_GEN"},
    {0x132, "CKM_DES3_ECB"},
    {0x133, "CKM_DES3_CBC"},
    {0x134, "CKM_DES3_MAC"},
    {0x220, "CKM_SHA_1"},
    {0x240, "CKM_RIPEMD160"},
    {0x250, "CKM_SHA256"},
    {0x260, "CKM_SHA384"},
    {0x270, "CKM_SHA512"},
    {0x1041, "CKM_ECDSA"},
    {0x1042, "CKM_ECDSA_SHA1"},
    {0x1050, "CKM_ECDH1_DERIVE"},
};

// Checks the returned length too.
std::string NameOf(CK_MECHANISM_TYPE mechanism) {
  char name[27];
  std::fill_n(name, sizeof name, '#');
  const size_t length = mech_to_str(mechanism, name);
  EXPECT_EQ(length, std::string(name).size());
  return name;
}

TEST(MechanismNames, CoverFiftySevenTypes) {
  EXPECT_EQ(kMechanismNames.size(), 57u);
  for (const auto& [mechanism, name] : kMechanismNames)
    EXPECT_EQ(NameOf(mechanism), name) << mechanism;
}

TEST(MechanismNames, EveryOtherTypeIsUnknown) {
  for (CK_MECHANISM_TYPE mechanism = 0; mechanism < 0x4000; ++mechanism) {
    if (kMechanismNames.count(mechanism) == 0) ASSERT_EQ(NameOf(mechanism), "Unknown") << mechanism;
  }
  for (CK_MECHANISM_TYPE mechanism : {0x80000000ul, 0x80000001ul, 0x100000001ul, ~0ul}) {
    EXPECT_EQ(NameOf(mechanism), "Unknown") << mechanism;
  }
}

TEST(MechanismNames, StandardNeighboursWithoutANameAreUnknown) {
  // SHA224_RSA_PKCS, SHA224_RSA_PKCS_PSS, SHA224, DES3_MAC_GENERAL, EC_KEY_PAIR_GEN,
  // ECDH1_COFACTOR_DERIVE, AES_KEY_GEN, AES_CBC
  for (CK_MECHANISM_TYPE mechanism :
       {0x46u, 0x47u, 0x255u, 0x135u, 0x1040u, 0x1051u, 0x1080u, 0x1082u}) {
    EXPECT_EQ(NameOf(mechanism), "Unknown") << mechanism;
  }
}

TEST(MechanismNames, ReturnsTheLengthOfTheName) {
  char name[64];
  EXPECT_EQ(mech_to_str(0x40, name), 19u);
  EXPECT_STREQ(name, "CKM_SHA256_RSA_PKCS");
  EXPECT_EQ(mech_to_str(0x1040, name), 7u);
  EXPECT_STREQ(name, "Unknown");
}

TEST(MechanismNames, TwentySevenBytesHoldTheLongestName) {
  EXPECT_EQ(NameOf(0x32), "CKM_X9_42_DH_HYBRID_DERIVE");
  EXPECT_EQ(NameOf(0x32).size(), 26u);
}

TEST(MechanismNames, CopiesAsIfEveryBufferHad1024Bytes) {
  char name[27];
  wrapped::Reset();
  mech_to_str(0x1, name);
  EXPECT_EQ(wrapped::calls().strlcpy_size, 1024u);
}

TEST(MechanismNames, WritesNothingBehindTheTerminator) {
  char name[27];
  std::fill_n(name, sizeof name, '#');
  mech_to_str(0x1, name);
  EXPECT_EQ(std::string(name, sizeof name),
            std::string("CKM_RSA_PKCS") + '\0' + std::string(14, '#'));
}

}  // namespace
