#import <Foundation/Foundation.h>
#import <Security/SecKeyAlgorithm.h>
#include <gtest/gtest.h>

#include <set>
#include <string>

#import "platform/linux/ctk/ctk_fixture.h"

namespace {

struct Published {
  const SecKeyAlgorithm *constant;
  const char *text;
};

// Each constant with the string that Apple publishes for it.
const Published kPublished[] = {
    {&kSecKeyAlgorithmECIESEncryptionStandardX963SHA1AESGCM,
     "algid:encrypt:ECIES:ECDH:KDFX963:SHA1:AESGCM"},
    {&kSecKeyAlgorithmECIESEncryptionStandardX963SHA224AESGCM,
     "algid:encrypt:ECIES:ECDH:KDFX963:SHA224:AESGCM"},
    {&kSecKeyAlgorithmECIESEncryptionStandardX963SHA256AESGCM,
     "algid:encrypt:ECIES:ECDH:KDFX963:SHA256:AESGCM"},
    {&kSecKeyAlgorithmECIESEncryptionStandardX963SHA384AESGCM,
     "algid:encrypt:ECIES:ECDH:KDFX963:SHA384:AESGCM"},
    {&kSecKeyAlgorithmECIESEncryptionStandardX963SHA512AESGCM,
     "algid:encrypt:ECIES:ECDH:KDFX963:SHA512:AESGCM"},
    {&kSecKeyAlgorithmECIESEncryptionStandardVariableIVX963SHA224AESGCM,
     "algid:encrypt:ECIES:ECDH:KDFX963:SHA224:AESGCM-KDFIV"},
    {&kSecKeyAlgorithmECIESEncryptionStandardVariableIVX963SHA256AESGCM,
     "algid:encrypt:ECIES:ECDH:KDFX963:SHA256:AESGCM-KDFIV"},
    {&kSecKeyAlgorithmECIESEncryptionStandardVariableIVX963SHA384AESGCM,
     "algid:encrypt:ECIES:ECDH:KDFX963:SHA384:AESGCM-KDFIV"},
    {&kSecKeyAlgorithmECIESEncryptionStandardVariableIVX963SHA512AESGCM,
     "algid:encrypt:ECIES:ECDH:KDFX963:SHA512:AESGCM-KDFIV"},
    {&kSecKeyAlgorithmECIESEncryptionCofactorVariableIVX963SHA224AESGCM,
     "algid:encrypt:ECIES:ECDHC:KDFX963:SHA224:AESGCM-KDFIV"},
    {&kSecKeyAlgorithmECIESEncryptionCofactorVariableIVX963SHA256AESGCM,
     "algid:encrypt:ECIES:ECDHC:KDFX963:SHA256:AESGCM-KDFIV"},
    {&kSecKeyAlgorithmECIESEncryptionCofactorVariableIVX963SHA384AESGCM,
     "algid:encrypt:ECIES:ECDHC:KDFX963:SHA384:AESGCM-KDFIV"},
    {&kSecKeyAlgorithmECIESEncryptionCofactorVariableIVX963SHA512AESGCM,
     "algid:encrypt:ECIES:ECDHC:KDFX963:SHA512:AESGCM-KDFIV"},
    {&kSecKeyAlgorithmECIESEncryptionCofactorX963SHA1AESGCM,
     "algid:encrypt:ECIES:ECDHC:KDFX963:SHA1:AESGCM"},
    {&kSecKeyAlgorithmECIESEncryptionCofactorX963SHA224AESGCM,
     "algid:encrypt:ECIES:ECDHC:KDFX963:SHA224:AESGCM"},
    {&kSecKeyAlgorithmECIESEncryptionCofactorX963SHA256AESGCM,
     "algid:encrypt:ECIES:ECDHC:KDFX963:SHA256:AESGCM"},
    {&kSecKeyAlgorithmECIESEncryptionCofactorX963SHA384AESGCM,
     "algid:encrypt:ECIES:ECDHC:KDFX963:SHA384:AESGCM"},
    {&kSecKeyAlgorithmECIESEncryptionCofactorX963SHA512AESGCM,
     "algid:encrypt:ECIES:ECDHC:KDFX963:SHA512:AESGCM"},
    {&kSecKeyAlgorithmECDSASignatureRFC4754, "algid:sign:ECDSA:RFC4754"},
    {&kSecKeyAlgorithmECDSASignatureDigestX962, "algid:sign:ECDSA:digest-X962"},
    {&kSecKeyAlgorithmECDSASignatureDigestX962SHA1, "algid:sign:ECDSA:digest-X962:SHA1"},
    {&kSecKeyAlgorithmECDSASignatureDigestX962SHA224, "algid:sign:ECDSA:digest-X962:SHA224"},
    {&kSecKeyAlgorithmECDSASignatureDigestX962SHA256, "algid:sign:ECDSA:digest-X962:SHA256"},
    {&kSecKeyAlgorithmECDSASignatureDigestX962SHA384, "algid:sign:ECDSA:digest-X962:SHA384"},
    {&kSecKeyAlgorithmECDSASignatureDigestX962SHA512, "algid:sign:ECDSA:digest-X962:SHA512"},
    {&kSecKeyAlgorithmECDSASignatureMessageX962SHA1, "algid:sign:ECDSA:message-X962:SHA1"},
    {&kSecKeyAlgorithmECDSASignatureMessageX962SHA224, "algid:sign:ECDSA:message-X962:SHA224"},
    {&kSecKeyAlgorithmECDSASignatureMessageX962SHA256, "algid:sign:ECDSA:message-X962:SHA256"},
    {&kSecKeyAlgorithmECDSASignatureMessageX962SHA384, "algid:sign:ECDSA:message-X962:SHA384"},
    {&kSecKeyAlgorithmECDSASignatureMessageX962SHA512, "algid:sign:ECDSA:message-X962:SHA512"},
    {&kSecKeyAlgorithmECDHKeyExchangeCofactor, "algid:keyexchange:ECDHC"},
    {&kSecKeyAlgorithmECDHKeyExchangeStandard, "algid:keyexchange:ECDH"},
    {&kSecKeyAlgorithmECDHKeyExchangeCofactorX963SHA1, "algid:keyexchange:ECDHC:KDFX963:SHA1"},
    {&kSecKeyAlgorithmECDHKeyExchangeStandardX963SHA1, "algid:keyexchange:ECDH:KDFX963:SHA1"},
    {&kSecKeyAlgorithmECDHKeyExchangeCofactorX963SHA224, "algid:keyexchange:ECDHC:KDFX963:SHA224"},
    {&kSecKeyAlgorithmECDHKeyExchangeCofactorX963SHA256, "algid:keyexchange:ECDHC:KDFX963:SHA256"},
    {&kSecKeyAlgorithmECDHKeyExchangeCofactorX963SHA384, "algid:keyexchange:ECDHC:KDFX963:SHA384"},
    {&kSecKeyAlgorithmECDHKeyExchangeCofactorX963SHA512, "algid:keyexchange:ECDHC:KDFX963:SHA512"},
    {&kSecKeyAlgorithmECDHKeyExchangeStandardX963SHA224, "algid:keyexchange:ECDH:KDFX963:SHA224"},
    {&kSecKeyAlgorithmECDHKeyExchangeStandardX963SHA256, "algid:keyexchange:ECDH:KDFX963:SHA256"},
    {&kSecKeyAlgorithmECDHKeyExchangeStandardX963SHA384, "algid:keyexchange:ECDH:KDFX963:SHA384"},
    {&kSecKeyAlgorithmECDHKeyExchangeStandardX963SHA512, "algid:keyexchange:ECDH:KDFX963:SHA512"},
    {&kSecKeyAlgorithmRSAEncryptionRaw, "algid:encrypt:RSA:raw"},
    {&kSecKeyAlgorithmRSAEncryptionPKCS1, "algid:encrypt:RSA:PKCS1"},
    {&kSecKeyAlgorithmRSAEncryptionOAEPSHA1, "algid:encrypt:RSA:OAEP:SHA1"},
    {&kSecKeyAlgorithmRSAEncryptionOAEPSHA224, "algid:encrypt:RSA:OAEP:SHA224"},
    {&kSecKeyAlgorithmRSAEncryptionOAEPSHA256, "algid:encrypt:RSA:OAEP:SHA256"},
    {&kSecKeyAlgorithmRSAEncryptionOAEPSHA384, "algid:encrypt:RSA:OAEP:SHA384"},
    {&kSecKeyAlgorithmRSAEncryptionOAEPSHA512, "algid:encrypt:RSA:OAEP:SHA512"},
    {&kSecKeyAlgorithmRSAEncryptionOAEPSHA1AESGCM, "algid:encrypt:RSA:OAEP:SHA1:AESGCM"},
    {&kSecKeyAlgorithmRSAEncryptionOAEPSHA224AESGCM, "algid:encrypt:RSA:OAEP:SHA224:AESGCM"},
    {&kSecKeyAlgorithmRSAEncryptionOAEPSHA256AESGCM, "algid:encrypt:RSA:OAEP:SHA256:AESGCM"},
    {&kSecKeyAlgorithmRSAEncryptionOAEPSHA384AESGCM, "algid:encrypt:RSA:OAEP:SHA384:AESGCM"},
    {&kSecKeyAlgorithmRSAEncryptionOAEPSHA512AESGCM, "algid:encrypt:RSA:OAEP:SHA512:AESGCM"},
    {&kSecKeyAlgorithmRSASignatureRaw, "algid:sign:RSA:raw"},
    {&kSecKeyAlgorithmRSASignatureDigestPKCS1v15Raw, "algid:sign:RSA:digest-PKCS1v15"},
    {&kSecKeyAlgorithmRSASignatureDigestPKCS1v15SHA1, "algid:sign:RSA:digest-PKCS1v15:SHA1"},
    {&kSecKeyAlgorithmRSASignatureDigestPKCS1v15SHA224, "algid:sign:RSA:digest-PKCS1v15:SHA224"},
    {&kSecKeyAlgorithmRSASignatureDigestPKCS1v15SHA256, "algid:sign:RSA:digest-PKCS1v15:SHA256"},
    {&kSecKeyAlgorithmRSASignatureDigestPKCS1v15SHA384, "algid:sign:RSA:digest-PKCS1v15:SHA384"},
    {&kSecKeyAlgorithmRSASignatureDigestPKCS1v15SHA512, "algid:sign:RSA:digest-PKCS1v15:SHA512"},
    {&kSecKeyAlgorithmRSASignatureMessagePKCS1v15SHA1, "algid:sign:RSA:message-PKCS1v15:SHA1"},
    {&kSecKeyAlgorithmRSASignatureMessagePKCS1v15SHA224, "algid:sign:RSA:message-PKCS1v15:SHA224"},
    {&kSecKeyAlgorithmRSASignatureMessagePKCS1v15SHA256, "algid:sign:RSA:message-PKCS1v15:SHA256"},
    {&kSecKeyAlgorithmRSASignatureMessagePKCS1v15SHA384, "algid:sign:RSA:message-PKCS1v15:SHA384"},
    {&kSecKeyAlgorithmRSASignatureMessagePKCS1v15SHA512, "algid:sign:RSA:message-PKCS1v15:SHA512"},
    {&kSecKeyAlgorithmRSASignatureDigestPSSSHA1, "algid:sign:RSA:digest-PSS:SHA1:SHA1:20"},
    {&kSecKeyAlgorithmRSASignatureDigestPSSSHA224, "algid:sign:RSA:digest-PSS:SHA224:SHA224:24"},
    {&kSecKeyAlgorithmRSASignatureDigestPSSSHA256, "algid:sign:RSA:digest-PSS:SHA256:SHA256:32"},
    {&kSecKeyAlgorithmRSASignatureDigestPSSSHA384, "algid:sign:RSA:digest-PSS:SHA384:SHA384:48"},
    {&kSecKeyAlgorithmRSASignatureDigestPSSSHA512, "algid:sign:RSA:digest-PSS:SHA512:SHA512:64"},
    {&kSecKeyAlgorithmRSASignatureMessagePSSSHA1, "algid:sign:RSA:message-PSS:SHA1:SHA1:20"},
    {&kSecKeyAlgorithmRSASignatureMessagePSSSHA224, "algid:sign:RSA:message-PSS:SHA224:SHA224:24"},
    {&kSecKeyAlgorithmRSASignatureMessagePSSSHA256, "algid:sign:RSA:message-PSS:SHA256:SHA256:32"},
    {&kSecKeyAlgorithmRSASignatureMessagePSSSHA384, "algid:sign:RSA:message-PSS:SHA384:SHA384:48"},
    {&kSecKeyAlgorithmRSASignatureMessagePSSSHA512, "algid:sign:RSA:message-PSS:SHA512:SHA512:64"},
};

// Read before main, as initialisers of other libraries may. (A message cannot be sent so early:
// this runtime has not resolved the image's selectors yet.)
const SecKeyAlgorithm kReadEarly = *kPublished[0].constant;

TEST(SecKeyAlgorithm, HasItsPublishedString) {
  for (const Published &algorithm : kPublished) {
    EXPECT_EQ(TextOf((NSString *)*algorithm.constant), algorithm.text);
  }
}

TEST(SecKeyAlgorithm, AllAreDifferent) {
  std::set<std::string> texts;
  for (const Published &algorithm : kPublished)
    texts.insert(TextOf((NSString *)*algorithm.constant));
  EXPECT_EQ(texts.size(), 76U);
}

TEST(SecKeyAlgorithm, IsThereBeforeMain) {
  ASSERT_NE(kReadEarly, nullptr);
  EXPECT_EQ(TextOf((NSString *)kReadEarly), kPublished[0].text);
}

}  // namespace
