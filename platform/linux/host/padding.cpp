// OpenSSL has bare padding only in its older interface.
#define OPENSSL_SUPPRESS_DEPRECATED
#include "platform/linux/host/padding.h"

#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <utility>

namespace host {
namespace {

int ToInt(size_t size) { return static_cast<int>(size); }

using Modulus = std::unique_ptr<RSA, decltype(&RSA_free)>;

// A key of which the padding reads nothing but the modulus's length.
Modulus ModulusOfLength(size_t bits) {
  Modulus key(RSA_new(), RSA_free);
  BIGNUM* n = BN_new();
  BIGNUM* e = BN_new();
  BN_set_bit(n, ToInt(bits - 1));
  BN_set_word(e, RSA_F4);
  if (RSA_set0_key(key.get(), n, e, nullptr) != 1) std::abort();
  return key;
}

// The first `size` bytes of what a padding check wrote, or its failure.
Result<Bytes> MessageOf(Bytes buffer, int size) {
  if (size < 0) return ParameterError("the decrypted block is not padded as the algorithm asks");
  buffer.resize(static_cast<size_t>(size));
  return buffer;
}

}  // namespace

Bytes DigestInfo(Hash hash, const Bytes& digest) {
  const std::unique_ptr<X509_SIG, decltype(&X509_SIG_free)> info(X509_SIG_new(), X509_SIG_free);
  X509_ALGOR* algorithm = nullptr;
  ASN1_OCTET_STRING* octets = nullptr;
  X509_SIG_getm(info.get(), &algorithm, &octets);
  X509_ALGOR_set0(algorithm, OBJ_nid2obj(EVP_MD_get_type(OpensslDigest(hash))), V_ASN1_NULL,
                  nullptr);
  ASN1_OCTET_STRING_set(octets, digest.data(), ToInt(digest.size()));
  unsigned char* der = nullptr;
  const int size = i2d_X509_SIG(info.get(), &der);
  if (size < 0) std::abort();
  Bytes result(der, der + size);
  OPENSSL_free(der);
  return result;
}

Result<Bytes> PadPkcs1(const Bytes& message, size_t block_size) {
  Bytes block(block_size);
  if (RSA_padding_add_PKCS1_type_1(block.data(), ToInt(block_size), message.data(),
                                   ToInt(message.size())) != 1) {
    return ParameterError("the data is too long for the key: " + std::to_string(message.size()) +
                          " bytes for a block of " + std::to_string(block_size));
  }
  return block;
}

size_t PssMinimumKeyBits(Hash hash) { return 16 * DigestSize(hash) + 9; }

Result<Bytes> PadPss(Hash hash, const Bytes& digest, size_t key_bits) {
  if (key_bits < PssMinimumKeyBits(hash)) {
    return ParameterError("the key is too small for PSS: " + std::to_string(key_bits) + " bits");
  }
  Bytes block((key_bits + 7) / 8);
  const EVP_MD* md = OpensslDigest(hash);
  if (RSA_padding_add_PKCS1_PSS_mgf1(ModulusOfLength(key_bits).get(), block.data(), digest.data(),
                                     md, md, RSA_PSS_SALTLEN_DIGEST) != 1) {
    return ParameterError("the digest cannot be padded for PSS");
  }
  return block;
}

Result<Bytes> UnpadPkcs1(const Bytes& block) {
  Bytes message(block.size());
  const int size = ToInt(block.size());
  const int length = RSA_padding_check_PKCS1_type_2(message.data(), size, block.data(), size, size);
  return MessageOf(std::move(message), length);
}

Result<Bytes> UnpadOaep(Hash hash, const Bytes& block) {
  Bytes message(block.size());
  const int size = ToInt(block.size());
  const EVP_MD* md = OpensslDigest(hash);
  const int length = RSA_padding_check_PKCS1_OAEP_mgf1(message.data(), size, block.data(), size,
                                                       size, nullptr, 0, md, md);
  return MessageOf(std::move(message), length);
}

Bytes ToWords(const Bytes& block) { return {block.rbegin(), block.rend()}; }

Result<Bytes> FromWords(const Bytes& words, size_t block_size) {
  Bytes number = words;
  while (!number.empty() && number.back() == 0) number.pop_back();
  if (number.size() > block_size) {
    return ParameterError("the number has " + std::to_string(number.size()) +
                          " bytes, but the key's modulus only " + std::to_string(block_size));
  }
  number.resize(block_size);
  std::ranges::reverse(number);
  return number;
}

}  // namespace host
