// OpenSSL has bare padding only in its older interface.
#define OPENSSL_SUPPRESS_DEPRECATED
#include "platform/linux/host/padding.h"

#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <cstdlib>
#include <memory>
#include <utility>

namespace host {
namespace {

int to_int(size_t size) { return static_cast<int>(size); }

using Modulus = std::unique_ptr<RSA, decltype(&RSA_free)>;

// A key of which the padding reads nothing but the modulus's length.
Modulus modulus_of_length(size_t bits) {
  Modulus key(RSA_new(), RSA_free);
  BIGNUM* n = BN_new();
  BIGNUM* e = BN_new();
  BN_set_bit(n, to_int(bits - 1));
  BN_set_word(e, RSA_F4);
  if (RSA_set0_key(key.get(), n, e, nullptr) != 1) std::abort();
  return key;
}

// The first `size` bytes of what a padding check wrote, or its failure.
Result<Bytes> message_of(Bytes buffer, int size) {
  if (size < 0) return parameter_error("the decrypted block is not padded as the algorithm asks");
  buffer.resize(static_cast<size_t>(size));
  return buffer;
}

}  // namespace

Bytes digest_info(Hash hash, const Bytes& digest) {
  const std::unique_ptr<X509_SIG, decltype(&X509_SIG_free)> info(X509_SIG_new(), X509_SIG_free);
  X509_ALGOR* algorithm = nullptr;
  ASN1_OCTET_STRING* octets = nullptr;
  X509_SIG_getm(info.get(), &algorithm, &octets);
  X509_ALGOR_set0(algorithm, OBJ_nid2obj(EVP_MD_get_type(openssl_digest(hash))), V_ASN1_NULL,
                  nullptr);
  ASN1_OCTET_STRING_set(octets, digest.data(), to_int(digest.size()));
  unsigned char* der = nullptr;
  const int size = i2d_X509_SIG(info.get(), &der);
  if (size < 0) std::abort();
  Bytes result(der, der + size);
  OPENSSL_free(der);
  return result;
}

Result<Bytes> pad_pkcs1(const Bytes& message, size_t block_size) {
  Bytes block(block_size);
  if (RSA_padding_add_PKCS1_type_1(block.data(), to_int(block_size), message.data(),
                                   to_int(message.size())) != 1) {
    return parameter_error("the data is too long for the key: " + std::to_string(message.size()) +
                           " bytes for a block of " + std::to_string(block_size));
  }
  return block;
}

size_t pss_minimum_key_bits(Hash hash) { return 16 * digest_size(hash) + 9; }

Result<Bytes> pad_pss(Hash hash, const Bytes& digest, size_t key_bits) {
  if (key_bits < pss_minimum_key_bits(hash)) {
    return parameter_error("the key is too small for PSS: " + std::to_string(key_bits) + " bits");
  }
  Bytes block((key_bits + 7) / 8);
  const EVP_MD* md = openssl_digest(hash);
  if (RSA_padding_add_PKCS1_PSS_mgf1(modulus_of_length(key_bits).get(), block.data(), digest.data(),
                                     md, md, RSA_PSS_SALTLEN_DIGEST) != 1) {
    return parameter_error("the digest cannot be padded for PSS");
  }
  return block;
}

Result<Bytes> unpad_pkcs1(const Bytes& block) {
  Bytes message(block.size());
  const int size = to_int(block.size());
  const int length = RSA_padding_check_PKCS1_type_2(message.data(), size, block.data(), size, size);
  return message_of(std::move(message), length);
}

Result<Bytes> unpad_oaep(Hash hash, const Bytes& block) {
  Bytes message(block.size());
  const int size = to_int(block.size());
  const EVP_MD* md = openssl_digest(hash);
  const int length = RSA_padding_check_PKCS1_OAEP_mgf1(message.data(), size, block.data(), size,
                                                       size, nullptr, 0, md, md);
  return message_of(std::move(message), length);
}

}  // namespace host
