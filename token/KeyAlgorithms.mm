#import "token/KeyAlgorithms.h"

struct AlgorithmMechanism {
  const SecKeyAlgorithm *algorithm;
  CK_MECHANISM_TYPE mechanism;
};

// The first match decides. Raw RSA signatures stand here twice, as intended: the order of questions
// to the platform is kept, though the second can never decide.
static const AlgorithmMechanism kMechanisms[] = {
    {&kSecKeyAlgorithmRSAEncryptionRaw, CKM_RSA_X_509},
    {&kSecKeyAlgorithmRSASignatureRaw, CKM_RSA_X_509},
    {&kSecKeyAlgorithmRSAEncryptionPKCS1, CKM_RSA_PKCS},
    {&kSecKeyAlgorithmRSASignatureRaw, CKM_RSA_X_509},
    {&kSecKeyAlgorithmECDSASignatureDigestX962, CKM_ECDSA},
    {&kSecKeyAlgorithmECDSASignatureDigestX962SHA1, CKM_ECDSA_SHA1},
    {&kSecKeyAlgorithmECDHKeyExchangeStandardX963SHA1, CKM_ECDH1_DERIVE},
};

CK_MECHANISM_TYPE get_mechanism(TKTokenKeyAlgorithm *algorithm) {
  for (const AlgorithmMechanism &row : kMechanisms) {
    if ([algorithm isAlgorithm:*row.algorithm]) return row.mechanism;
  }
  return kNoMechanism;
}
