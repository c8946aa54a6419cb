#import "token/KeyAlgorithms.h"

struct AlgorithmName {
  const SecKeyAlgorithm *algorithm;
  const char *name;
};

#define ALGORITHM(name) {&(name), #name}

// In the order in which they are tried; none stands twice.
static const AlgorithmName kNames[] = {
    ALGORITHM(kSecKeyAlgorithmECIESEncryptionStandardX963SHA1AESGCM),
    ALGORITHM(kSecKeyAlgorithmECIESEncryptionStandardX963SHA224AESGCM),
    ALGORITHM(kSecKeyAlgorithmECIESEncryptionStandardX963SHA256AESGCM),
    ALGORITHM(kSecKeyAlgorithmECIESEncryptionStandardX963SHA384AESGCM),
    ALGORITHM(kSecKeyAlgorithmECIESEncryptionStandardX963SHA512AESGCM),
    ALGORITHM(kSecKeyAlgorithmECIESEncryptionStandardVariableIVX963SHA224AESGCM),
    ALGORITHM(kSecKeyAlgorithmECIESEncryptionStandardVariableIVX963SHA256AESGCM),
    ALGORITHM(kSecKeyAlgorithmECIESEncryptionStandardVariableIVX963SHA384AESGCM),
    ALGORITHM(kSecKeyAlgorithmECIESEncryptionStandardVariableIVX963SHA512AESGCM),
    ALGORITHM(kSecKeyAlgorithmECIESEncryptionCofactorVariableIVX963SHA224AESGCM),
    ALGORITHM(kSecKeyAlgorithmECIESEncryptionCofactorVariableIVX963SHA256AESGCM),
    ALGORITHM(kSecKeyAlgorithmECIESEncryptionCofactorVariableIVX963SHA384AESGCM),
    ALGORITHM(kSecKeyAlgorithmECIESEncryptionCofactorVariableIVX963SHA512AESGCM),
    ALGORITHM(kSecKeyAlgorithmECIESEncryptionCofactorX963SHA1AESGCM),
    ALGORITHM(kSecKeyAlgorithmECIESEncryptionCofactorX963SHA224AESGCM),
    ALGORITHM(kSecKeyAlgorithmECIESEncryptionCofactorX963SHA256AESGCM),
    ALGORITHM(kSecKeyAlgorithmECIESEncryptionCofactorX963SHA384AESGCM),
    ALGORITHM(kSecKeyAlgorithmECIESEncryptionCofactorX963SHA512AESGCM),
    ALGORITHM(kSecKeyAlgorithmECDSASignatureRFC4754),
    ALGORITHM(kSecKeyAlgorithmECDSASignatureDigestX962),
    ALGORITHM(kSecKeyAlgorithmECDSASignatureDigestX962SHA1),
    ALGORITHM(kSecKeyAlgorithmECDSASignatureDigestX962SHA224),
    ALGORITHM(kSecKeyAlgorithmECDSASignatureDigestX962SHA256),
    ALGORITHM(kSecKeyAlgorithmECDSASignatureDigestX962SHA384),
    ALGORITHM(kSecKeyAlgorithmECDSASignatureDigestX962SHA512),
    ALGORITHM(kSecKeyAlgorithmECDSASignatureMessageX962SHA1),
    ALGORITHM(kSecKeyAlgorithmECDSASignatureMessageX962SHA224),
    ALGORITHM(kSecKeyAlgorithmECDSASignatureMessageX962SHA256),
    ALGORITHM(kSecKeyAlgorithmECDSASignatureMessageX962SHA384),
    ALGORITHM(kSecKeyAlgorithmECDSASignatureMessageX962SHA512),
    ALGORITHM(kSecKeyAlgorithmECDHKeyExchangeCofactor),
    ALGORITHM(kSecKeyAlgorithmECDHKeyExchangeStandard),
    ALGORITHM(kSecKeyAlgorithmECDHKeyExchangeCofactorX963SHA1),
    ALGORITHM(kSecKeyAlgorithmECDHKeyExchangeStandardX963SHA1),
    ALGORITHM(kSecKeyAlgorithmECDHKeyExchangeCofactorX963SHA224),
    ALGORITHM(kSecKeyAlgorithmECDHKeyExchangeCofactorX963SHA256),
    ALGORITHM(kSecKeyAlgorithmECDHKeyExchangeCofactorX963SHA384),
    ALGORITHM(kSecKeyAlgorithmECDHKeyExchangeCofactorX963SHA512),
    ALGORITHM(kSecKeyAlgorithmECDHKeyExchangeStandardX963SHA224),
    ALGORITHM(kSecKeyAlgorithmECDHKeyExchangeStandardX963SHA256),
    ALGORITHM(kSecKeyAlgorithmECDHKeyExchangeStandardX963SHA384),
    ALGORITHM(kSecKeyAlgorithmECDHKeyExchangeStandardX963SHA512),
    ALGORITHM(kSecKeyAlgorithmRSAEncryptionRaw),
    ALGORITHM(kSecKeyAlgorithmRSAEncryptionPKCS1),
    ALGORITHM(kSecKeyAlgorithmRSAEncryptionOAEPSHA1),
    ALGORITHM(kSecKeyAlgorithmRSAEncryptionOAEPSHA224),
    ALGORITHM(kSecKeyAlgorithmRSAEncryptionOAEPSHA256),
    ALGORITHM(kSecKeyAlgorithmRSAEncryptionOAEPSHA384),
    ALGORITHM(kSecKeyAlgorithmRSAEncryptionOAEPSHA512),
    ALGORITHM(kSecKeyAlgorithmRSAEncryptionOAEPSHA1AESGCM),
    ALGORITHM(kSecKeyAlgorithmRSAEncryptionOAEPSHA224AESGCM),
    ALGORITHM(kSecKeyAlgorithmRSAEncryptionOAEPSHA256AESGCM),
    ALGORITHM(kSecKeyAlgorithmRSAEncryptionOAEPSHA384AESGCM),
    ALGORITHM(kSecKeyAlgorithmRSAEncryptionOAEPSHA512AESGCM),
    ALGORITHM(kSecKeyAlgorithmRSASignatureRaw),
    ALGORITHM(kSecKeyAlgorithmRSASignatureDigestPKCS1v15Raw),
    ALGORITHM(kSecKeyAlgorithmRSASignatureDigestPKCS1v15SHA1),
    ALGORITHM(kSecKeyAlgorithmRSASignatureDigestPKCS1v15SHA224),
    ALGORITHM(kSecKeyAlgorithmRSASignatureDigestPKCS1v15SHA256),
    ALGORITHM(kSecKeyAlgorithmRSASignatureDigestPKCS1v15SHA384),
    ALGORITHM(kSecKeyAlgorithmRSASignatureDigestPKCS1v15SHA512),
    ALGORITHM(kSecKeyAlgorithmRSASignatureMessagePKCS1v15SHA1),
    ALGORITHM(kSecKeyAlgorithmRSASignatureMessagePKCS1v15SHA224),
    ALGORITHM(kSecKeyAlgorithmRSASignatureMessagePKCS1v15SHA256),
    ALGORITHM(kSecKeyAlgorithmRSASignatureMessagePKCS1v15SHA384),
    ALGORITHM(kSecKeyAlgorithmRSASignatureMessagePKCS1v15SHA512),
    ALGORITHM(kSecKeyAlgorithmRSASignatureDigestPSSSHA1),
    ALGORITHM(kSecKeyAlgorithmRSASignatureDigestPSSSHA224),
    ALGORITHM(kSecKeyAlgorithmRSASignatureDigestPSSSHA256),
    ALGORITHM(kSecKeyAlgorithmRSASignatureDigestPSSSHA384),
    ALGORITHM(kSecKeyAlgorithmRSASignatureDigestPSSSHA512),
    ALGORITHM(kSecKeyAlgorithmRSASignatureMessagePSSSHA1),
    ALGORITHM(kSecKeyAlgorithmRSASignatureMessagePSSSHA224),
    ALGORITHM(kSecKeyAlgorithmRSASignatureMessagePSSSHA256),
    ALGORITHM(kSecKeyAlgorithmRSASignatureMessagePSSSHA384),
    ALGORITHM(kSecKeyAlgorithmRSASignatureMessagePSSSHA512),
};

#undef ALGORITHM

const char *algo_to_str(TKTokenKeyAlgorithm *algorithm) {
  for (const AlgorithmName &row : kNames) {
    if ([algorithm isAlgorithm:*row.algorithm]) return row.name;
  }
  return "Unknown algorithm";
}
