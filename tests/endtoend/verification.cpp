#include "tests/endtoend/verification.h"

#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>

#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>

namespace endtoend {
namespace {

using Key = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;
using Context = std::unique_ptr<EVP_PKEY_CTX, decltype(&EVP_PKEY_CTX_free)>;

void Check(bool succeeded, const char* what) {
  if (!succeeded) throw std::runtime_error(std::string("OpenSSL: ") + what + " failed");
}

Key ReadPublicKey(const std::filesystem::path& path) {
  std::unique_ptr<std::FILE, decltype(&std::fclose)> file(std::fopen(path.c_str(), "r"),
                                                          &std::fclose);
  if (!file) throw std::runtime_error("cannot open " + path.string());
  Key key(PEM_read_PUBKEY(file.get(), nullptr, nullptr, nullptr), &EVP_PKEY_free);
  Check(key != nullptr, "reading the public key");
  return key;
}

Context MakeContext(EVP_PKEY* key) { return {EVP_PKEY_CTX_new(key, nullptr), &EVP_PKEY_CTX_free}; }

}  // namespace

Bytes ReadFile(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error("cannot open " + path.string());
  return {std::istreambuf_iterator<char>(file), {}};
}

Bytes Sha256(const std::string& text) {
  Bytes digest(32);
  Check(EVP_Digest(text.data(), text.size(), digest.data(), nullptr, EVP_sha256(), nullptr) == 1,
        "EVP_Digest");
  return digest;
}

Bytes Pkcs1Block(const Bytes& digest, std::size_t size) {
  const Bytes info = {0x30, 0x31, 0x30, 0x0d, 0x06, 0x09, 0x60, 0x86, 0x48, 0x01,
                      0x65, 0x03, 0x04, 0x02, 0x01, 0x05, 0x00, 0x04, 0x20};
  Bytes block(size, 0xff);
  block[0] = 0x00;
  block[1] = 0x01;
  const std::size_t start = size - info.size() - digest.size();
  block[start - 1] = 0x00;
  std::copy(info.begin(), info.end(), block.begin() + static_cast<std::ptrdiff_t>(start));
  std::copy(digest.begin(), digest.end(), block.end() - static_cast<std::ptrdiff_t>(digest.size()));
  return block;
}

bool Verifies(const std::filesystem::path& public_key, const Bytes& digest,
              const Bytes& signature) {
  const Key key = ReadPublicKey(public_key);
  const Context context = MakeContext(key.get());
  Check(EVP_PKEY_verify_init(context.get()) == 1, "EVP_PKEY_verify_init");
  Check(EVP_PKEY_CTX_set_signature_md(context.get(), EVP_sha256()) == 1, "setting the digest");
  return EVP_PKEY_verify(context.get(), signature.data(), signature.size(), digest.data(),
                         digest.size()) == 1;
}

Bytes EncryptPkcs1(const std::filesystem::path& public_key, const Bytes& plaintext) {
  const Key key = ReadPublicKey(public_key);
  const Context context = MakeContext(key.get());
  Check(EVP_PKEY_encrypt_init(context.get()) == 1, "EVP_PKEY_encrypt_init");
  std::size_t size = static_cast<std::size_t>(EVP_PKEY_get_size(key.get()));
  Bytes ciphertext(size);
  Check(EVP_PKEY_encrypt(context.get(), ciphertext.data(), &size, plaintext.data(),
                         plaintext.size()) == 1,
        "EVP_PKEY_encrypt");
  ciphertext.resize(size);
  return ciphertext;
}

KeyAgreement::KeyAgreement() : key_(EVP_EC_gen("P-256")) {
  Check(key_ != nullptr, "making a P-256 key");
}

KeyAgreement::~KeyAgreement() { EVP_PKEY_free(static_cast<EVP_PKEY*>(key_)); }

Bytes KeyAgreement::PublicPoint() const {
  Bytes point(65);
  std::size_t size = 0;
  Check(EVP_PKEY_get_octet_string_param(static_cast<EVP_PKEY*>(key_), "encoded-pub-key",
                                        point.data(), point.size(), &size) == 1,
        "reading the public point");
  point.resize(size);
  return point;
}

Bytes KeyAgreement::Secret(const std::filesystem::path& other) const {
  const Key peer = ReadPublicKey(other);
  const Context context = MakeContext(static_cast<EVP_PKEY*>(key_));
  Check(EVP_PKEY_derive_init(context.get()) == 1, "EVP_PKEY_derive_init");
  Check(EVP_PKEY_derive_set_peer(context.get(), peer.get()) == 1, "EVP_PKEY_derive_set_peer");
  Bytes secret(64);
  std::size_t size = secret.size();
  Check(EVP_PKEY_derive(context.get(), secret.data(), &size) == 1, "EVP_PKEY_derive");
  secret.resize(size);
  return secret;
}

}  // namespace endtoend
