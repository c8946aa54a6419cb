// The key algorithm constants, with the strings that Apple's framework gives them.
#import <Foundation/Foundation.h>

// Constant-initialised, so that initialisers of other libraries may read them. That is why they are
// defined as the strings they are, without their header: a cast to SecKeyAlgorithm is no constant.
#define KEY_ALGORITHM(name, text) extern "C" constinit NSString *const kSecKeyAlgorithm##name = text

KEY_ALGORITHM(ECIESEncryptionStandardX963SHA1AESGCM,
              @"algid:encrypt:ECIES:ECDH:KDFX963:SHA1:AESGCM");
KEY_ALGORITHM(ECIESEncryptionStandardX963SHA224AESGCM,
              @"algid:encrypt:ECIES:ECDH:KDFX963:SHA224:AESGCM");
KEY_ALGORITHM(ECIESEncryptionStandardX963SHA256AESGCM,
              @"algid:encrypt:ECIES:ECDH:KDFX963:SHA256:AESGCM");
KEY_ALGORITHM(ECIESEncryptionStandardX963SHA384AESGCM,
              @"algid:encrypt:ECIES:ECDH:KDFX963:SHA384:AESGCM");
KEY_ALGORITHM(ECIESEncryptionStandardX963SHA512AESGCM,
              @"algid:encrypt:ECIES:ECDH:KDFX963:SHA512:AESGCM");
KEY_ALGORITHM(ECIESEncryptionStandardVariableIVX963SHA224AESGCM,
              @"algid:encrypt:ECIES:ECDH:KDFX963:SHA224:AESGCM-KDFIV");
KEY_ALGORITHM(ECIESEncryptionStandardVariableIVX963SHA256AESGCM,
              @"algid:encrypt:ECIES:ECDH:KDFX963:SHA256:AESGCM-KDFIV");
KEY_ALGORITHM(ECIESEncryptionStandardVariableIVX963SHA384AESGCM,
              @"algid:encrypt:ECIES:ECDH:KDFX963:SHA384:AESGCM-KDFIV");
KEY_ALGORITHM(ECIESEncryptionStandardVariableIVX963SHA512AESGCM,
              @"algid:encrypt:ECIES:ECDH:KDFX963:SHA512:AESGCM-KDFIV");
KEY_ALGORITHM(ECIESEncryptionCofactorVariableIVX963SHA224AESGCM,
              @"algid:encrypt:ECIES:ECDHC:KDFX963:SHA224:AESGCM-KDFIV");
KEY_ALGORITHM(ECIESEncryptionCofactorVariableIVX963SHA256AESGCM,
              @"algid:encrypt:ECIES:ECDHC:KDFX963:SHA256:AESGCM-KDFIV");
KEY_ALGORITHM(ECIESEncryptionCofactorVariableIVX963SHA384AESGCM,
              @"algid:encrypt:ECIES:ECDHC:KDFX963:SHA384:AESGCM-KDFIV");
KEY_ALGORITHM(ECIESEncryptionCofactorVariableIVX963SHA512AESGCM,
              @"algid:encrypt:ECIES:ECDHC:KDFX963:SHA512:AESGCM-KDFIV");
KEY_ALGORITHM(ECIESEncryptionCofactorX963SHA1AESGCM,
              @"algid:encrypt:ECIES:ECDHC:KDFX963:SHA1:AESGCM");
KEY_ALGORITHM(ECIESEncryptionCofactorX963SHA224AESGCM,
              @"algid:encrypt:ECIES:ECDHC:KDFX963:SHA224:AESGCM");
KEY_ALGORITHM(ECIESEncryptionCofactorX963SHA256AESGCM,
              @"algid:encrypt:ECIES:ECDHC:KDFX963:SHA256:AESGCM");
KEY_ALGORITHM(ECIESEncryptionCofactorX963SHA384AESGCM,
              @"algid:encrypt:ECIES:ECDHC:KDFX963:SHA384:AESGCM");
KEY_ALGORITHM(ECIESEncryptionCofactorX963SHA512AESGCM,
              @"algid:encrypt:ECIES:ECDHC:KDFX963:SHA512:AESGCM");
KEY_ALGORITHM(ECDSASignatureRFC4754, @"algid:sign:ECDSA:RFC4754");
KEY_ALGORITHM(ECDSASignatureDigestX962, @"algid:sign:ECDSA:digest-X962");
KEY_ALGORITHM(ECDSASignatureDigestX962SHA1, @"algid:sign:ECDSA:digest-X962:SHA1");
KEY_ALGORITHM(ECDSASignatureDigestX962SHA224, @"algid:sign:ECDSA:digest-X962:SHA224");
KEY_ALGORITHM(ECDSASignatureDigestX962SHA256, @"algid:sign:ECDSA:digest-X962:SHA256");
KEY_ALGORITHM(ECDSASignatureDigestX962SHA384, @"algid:sign:ECDSA:digest-X962:SHA384");
KEY_ALGORITHM(ECDSASignatureDigestX962SHA512, @"algid:sign:ECDSA:digest-X962:SHA512");
KEY_ALGORITHM(ECDSASignatureMessageX962SHA1, @"algid:sign:ECDSA:message-X962:SHA1");
KEY_ALGORITHM(ECDSASignatureMessageX962SHA224, @"algid:sign:ECDSA:message-X962:SHA224");
KEY_ALGORITHM(ECDSASignatureMessageX962SHA256, @"algid:sign:ECDSA:message-X962:SHA256");
KEY_ALGORITHM(ECDSASignatureMessageX962SHA384, @"algid:sign:ECDSA:message-X962:SHA384");
KEY_ALGORITHM(ECDSASignatureMessageX962SHA512, @"algid:sign:ECDSA:message-X962:SHA512");
KEY_ALGORITHM(ECDHKeyExchangeCofactor, @"algid:keyexchange:ECDHC");
KEY_ALGORITHM(ECDHKeyExchangeStandard, @"algid:keyexchange:ECDH");
KEY_ALGORITHM(ECDHKeyExchangeCofactorX963SHA1, @"algid:keyexchange:ECDHC:KDFX963:SHA1");
KEY_ALGORITHM(ECDHKeyExchangeStandardX963SHA1, @"algid:keyexchange:ECDH:KDFX963:SHA1");
KEY_ALGORITHM(ECDHKeyExchangeCofactorX963SHA224, @"algid:keyexchange:ECDHC:KDFX963:SHA224");
KEY_ALGORITHM(ECDHKeyExchangeCofactorX963SHA256, @"algid:keyexchange:ECDHC:KDFX963:SHA256");
KEY_ALGORITHM(ECDHKeyExchangeCofactorX963SHA384, @"algid:keyexchange:ECDHC:KDFX963:SHA384");
KEY_ALGORITHM(ECDHKeyExchangeCofactorX963SHA512, @"algid:keyexchange:ECDHC:KDFX963:SHA512");
KEY_ALGORITHM(ECDHKeyExchangeStandardX963SHA224, @"algid:keyexchange:ECDH:KDFX963:SHA224");
KEY_ALGORITHM(ECDHKeyExchangeStandardX963SHA256, @"algid:keyexchange:ECDH:KDFX963:SHA256");
KEY_ALGORITHM(ECDHKeyExchangeStandardX963SHA384, @"algid:keyexchange:ECDH:KDFX963:SHA384");
KEY_ALGORITHM(ECDHKeyExchangeStandardX963SHA512, @"algid:keyexchange:ECDH:KDFX963:SHA512");
KEY_ALGORITHM(RSAEncryptionRaw, @"algid:encrypt:RSA:raw");
KEY_ALGORITHM(RSAEncryptionPKCS1, @"algid:encrypt:RSA:PKCS1");
KEY_ALGORITHM(RSAEncryptionOAEPSHA1, @"algid:encrypt:RSA:OAEP:SHA1");
KEY_ALGORITHM(RSAEncryptionOAEPSHA224, @"algid:encrypt:RSA:OAEP:SHA224");
KEY_ALGORITHM(RSAEncryptionOAEPSHA256, @"algid:encrypt:RSA:OAEP:SHA256");
KEY_ALGORITHM(RSAEncryptionOAEPSHA384, @"algid:encrypt:RSA:OAEP:SHA384");
KEY_ALGORITHM(RSAEncryptionOAEPSHA512, @"algid:encrypt:RSA:OAEP:SHA512");
KEY_ALGORITHM(RSAEncryptionOAEPSHA1AESGCM, @"algid:encrypt:RSA:OAEP:SHA1:AESGCM");
KEY_ALGORITHM(RSAEncryptionOAEPSHA224AESGCM, @"algid:encrypt:RSA:OAEP:SHA224:AESGCM");
KEY_ALGORITHM(RSAEncryptionOAEPSHA256AESGCM, @"algid:encrypt:RSA:OAEP:SHA256:AESGCM");
KEY_ALGORITHM(RSAEncryptionOAEPSHA384AESGCM, @"algid:encrypt:RSA:OAEP:SHA384:AESGCM");
KEY_ALGORITHM(RSAEncryptionOAEPSHA512AESGCM, @"algid:encrypt:RSA:OAEP:SHA512:AESGCM");
KEY_ALGORITHM(RSASignatureRaw, @"algid:sign:RSA:raw");
KEY_ALGORITHM(RSASignatureDigestPKCS1v15Raw, @"algid:sign:RSA:digest-PKCS1v15");
KEY_ALGORITHM(RSASignatureDigestPKCS1v15SHA1, @"algid:sign:RSA:digest-PKCS1v15:SHA1");
KEY_ALGORITHM(RSASignatureDigestPKCS1v15SHA224, @"algid:sign:RSA:digest-PKCS1v15:SHA224");
KEY_ALGORITHM(RSASignatureDigestPKCS1v15SHA256, @"algid:sign:RSA:digest-PKCS1v15:SHA256");
KEY_ALGORITHM(RSASignatureDigestPKCS1v15SHA384, @"algid:sign:RSA:digest-PKCS1v15:SHA384");
KEY_ALGORITHM(RSASignatureDigestPKCS1v15SHA512, @"algid:sign:RSA:digest-PKCS1v15:SHA512");
KEY_ALGORITHM(RSASignatureMessagePKCS1v15SHA1, @"algid:sign:RSA:message-PKCS1v15:SHA1");
KEY_ALGORITHM(RSASignatureMessagePKCS1v15SHA224, @"algid:sign:RSA:message-PKCS1v15:SHA224");
KEY_ALGORITHM(RSASignatureMessagePKCS1v15SHA256, @"algid:sign:RSA:message-PKCS1v15:SHA256");
KEY_ALGORITHM(RSASignatureMessagePKCS1v15SHA384, @"algid:sign:RSA:message-PKCS1v15:SHA384");
KEY_ALGORITHM(RSASignatureMessagePKCS1v15SHA512, @"algid:sign:RSA:message-PKCS1v15:SHA512");
KEY_ALGORITHM(RSASignatureDigestPSSSHA1, @"algid:sign:RSA:digest-PSS:SHA1:SHA1:20");
// Published with 24, though the salt has 28 bytes.
KEY_ALGORITHM(RSASignatureDigestPSSSHA224, @"algid:sign:RSA:digest-PSS:SHA224:SHA224:24");
KEY_ALGORITHM(RSASignatureDigestPSSSHA256, @"algid:sign:RSA:digest-PSS:SHA256:SHA256:32");
KEY_ALGORITHM(RSASignatureDigestPSSSHA384, @"algid:sign:RSA:digest-PSS:SHA384:SHA384:48");
KEY_ALGORITHM(RSASignatureDigestPSSSHA512, @"algid:sign:RSA:digest-PSS:SHA512:SHA512:64");
KEY_ALGORITHM(RSASignatureMessagePSSSHA1, @"algid:sign:RSA:message-PSS:SHA1:SHA1:20");
KEY_ALGORITHM(RSASignatureMessagePSSSHA224, @"algid:sign:RSA:message-PSS:SHA224:SHA224:24");
KEY_ALGORITHM(RSASignatureMessagePSSSHA256, @"algid:sign:RSA:message-PSS:SHA256:SHA256:32");
KEY_ALGORITHM(RSASignatureMessagePSSSHA384, @"algid:sign:RSA:message-PSS:SHA384:SHA384:48");
KEY_ALGORITHM(RSASignatureMessagePSSSHA512, @"algid:sign:RSA:message-PSS:SHA512:SHA512:64");
