#include "platform/linux/host/algorithm_names.h"

#import <Foundation/Foundation.h>
#import <Security/SecKeyAlgorithm.h>

#include <cstdio>
#include <cstdlib>

namespace host {
namespace {

constexpr std::string_view kPrefix = "kSecKeyAlgorithm";

struct Constant {
  const char *name;
  const SecKeyAlgorithm *value;  // its address: the value is another library's
};

#define ALGORITHM(name) {#name, &kSecKeyAlgorithm##name}
const Constant kConstants[] = {
    ALGORITHM(ECIESEncryptionStandardX963SHA1AESGCM),
    ALGORITHM(ECIESEncryptionStandardX963SHA224AESGCM),
    ALGORITHM(ECIESEncryptionStandardX963SHA256AESGCM),
    ALGORITHM(ECIESEncryptionStandardX963SHA384AESGCM),
    ALGORITHM(ECIESEncryptionStandardX963SHA512AESGCM),
    ALGORITHM(ECIESEncryptionStandardVariableIVX963SHA224AESGCM),
    ALGORITHM(ECIESEncryptionStandardVariableIVX963SHA256AESGCM),
    ALGORITHM(ECIESEncryptionStandardVariableIVX963SHA384AESGCM),
    ALGORITHM(ECIESEncryptionStandardVariableIVX963SHA512AESGCM),
    ALGORITHM(ECIESEncryptionCofactorVariableIVX963SHA224AESGCM),
    ALGORITHM(ECIESEncryptionCofactorVariableIVX963SHA256AESGCM),
    ALGORITHM(ECIESEncryptionCofactorVariableIVX963SHA384AESGCM),
    ALGORITHM(ECIESEncryptionCofactorVariableIVX963SHA512AESGCM),
    ALGORITHM(ECIESEncryptionCofactorX963SHA1AESGCM),
    ALGORITHM(ECIESEncryptionCofactorX963SHA224AESGCM),
    ALGORITHM(ECIESEncryptionCofactorX963SHA256AESGCM),
    ALGORITHM(ECIESEncryptionCofactorX963SHA384AESGCM),
    ALGORITHM(ECIESEncryptionCofactorX963SHA512AESGCM),
    ALGORITHM(ECDSASignatureRFC4754),
    ALGORITHM(ECDSASignatureDigestX962),
    ALGORITHM(ECDSASignatureDigestX962SHA1),
    ALGORITHM(ECDSASignatureDigestX962SHA224),
    ALGORITHM(ECDSASignatureDigestX962SHA256),
    ALGORITHM(ECDSASignatureDigestX962SHA384),
    ALGORITHM(ECDSASignatureDigestX962SHA512),
    ALGORITHM(ECDSASignatureMessageX962SHA1),
    ALGORITHM(ECDSASignatureMessageX962SHA224),
    ALGORITHM(ECDSASignatureMessageX962SHA256),
    ALGORITHM(ECDSASignatureMessageX962SHA384),
    ALGORITHM(ECDSASignatureMessageX962SHA512),
    ALGORITHM(ECDHKeyExchangeCofactor),
    ALGORITHM(ECDHKeyExchangeStandard),
    ALGORITHM(ECDHKeyExchangeCofactorX963SHA1),
    ALGORITHM(ECDHKeyExchangeStandardX963SHA1),
    ALGORITHM(ECDHKeyExchangeCofactorX963SHA224),
    ALGORITHM(ECDHKeyExchangeCofactorX963SHA256),
    ALGORITHM(ECDHKeyExchangeCofactorX963SHA384),
    ALGORITHM(ECDHKeyExchangeCofactorX963SHA512),
    ALGORITHM(ECDHKeyExchangeStandardX963SHA224),
    ALGORITHM(ECDHKeyExchangeStandardX963SHA256),
    ALGORITHM(ECDHKeyExchangeStandardX963SHA384),
    ALGORITHM(ECDHKeyExchangeStandardX963SHA512),
    ALGORITHM(RSAEncryptionRaw),
    ALGORITHM(RSAEncryptionPKCS1),
    ALGORITHM(RSAEncryptionOAEPSHA1),
    ALGORITHM(RSAEncryptionOAEPSHA224),
    ALGORITHM(RSAEncryptionOAEPSHA256),
    ALGORITHM(RSAEncryptionOAEPSHA384),
    ALGORITHM(RSAEncryptionOAEPSHA512),
    ALGORITHM(RSAEncryptionOAEPSHA1AESGCM),
    ALGORITHM(RSAEncryptionOAEPSHA224AESGCM),
    ALGORITHM(RSAEncryptionOAEPSHA256AESGCM),
    ALGORITHM(RSAEncryptionOAEPSHA384AESGCM),
    ALGORITHM(RSAEncryptionOAEPSHA512AESGCM),
    ALGORITHM(RSASignatureRaw),
    ALGORITHM(RSASignatureDigestPKCS1v15Raw),
    ALGORITHM(RSASignatureDigestPKCS1v15SHA1),
    ALGORITHM(RSASignatureDigestPKCS1v15SHA224),
    ALGORITHM(RSASignatureDigestPKCS1v15SHA256),
    ALGORITHM(RSASignatureDigestPKCS1v15SHA384),
    ALGORITHM(RSASignatureDigestPKCS1v15SHA512),
    ALGORITHM(RSASignatureMessagePKCS1v15SHA1),
    ALGORITHM(RSASignatureMessagePKCS1v15SHA224),
    ALGORITHM(RSASignatureMessagePKCS1v15SHA256),
    ALGORITHM(RSASignatureMessagePKCS1v15SHA384),
    ALGORITHM(RSASignatureMessagePKCS1v15SHA512),
    ALGORITHM(RSASignatureDigestPSSSHA1),
    ALGORITHM(RSASignatureDigestPSSSHA224),
    ALGORITHM(RSASignatureDigestPSSSHA256),
    ALGORITHM(RSASignatureDigestPSSSHA384),
    ALGORITHM(RSASignatureDigestPSSSHA512),
    ALGORITHM(RSASignatureMessagePSSSHA1),
    ALGORITHM(RSASignatureMessagePSSSHA224),
    ALGORITHM(RSASignatureMessagePSSSHA256),
    ALGORITHM(RSASignatureMessagePSSSHA384),
    ALGORITHM(RSASignatureMessagePSSSHA512),
};
#undef ALGORITHM

std::vector<Algorithm> read_constants() {
  std::vector<Algorithm> result;
  @autoreleasepool {
    for (const Constant &constant : kConstants) {
      result.push_back({constant.name, [(NSString *)*constant.value UTF8String]});
    }
  }
  return result;
}

}  // namespace

const std::vector<Algorithm> &algorithms() {
  static const auto *const all = new std::vector<Algorithm>(read_constants());
  return *all;
}

const Algorithm *find_algorithm(std::string_view name) {
  if (name.starts_with(kPrefix)) name.remove_prefix(kPrefix.size());
  for (const Algorithm &algorithm : algorithms()) {
    if (algorithm.name == name) return &algorithm;
  }
  return nullptr;
}

std::string constant_name(std::string_view value) {
  for (const Algorithm &algorithm : algorithms()) {
    if (algorithm.value == value) return std::string(kPrefix) + algorithm.name;
  }
  return std::string(value);
}

const std::string &algorithm_value(std::string_view name) {
  const Algorithm *algorithm = find_algorithm(name);
  if (algorithm == nullptr) {
    std::fprintf(stderr, "no key algorithm is named %s\n", std::string(name).c_str());
    std::abort();
  }
  return algorithm->value;
}

}  // namespace host
