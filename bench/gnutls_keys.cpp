#include <gnutls/abstract.h>
#include <gnutls/gnutls.h>
#include <gnutls/pkcs11.h>

#include <array>
#include <cstdio>
#include <stdexcept>

#include "bench/library_keys.h"

namespace kelvrin::bench {
namespace {

void Check(int result, const char* what) {
  if (result < 0) {
    throw std::runtime_error(std::string("GnuTLS: ") + what + ": " + gnutls_strerror(result));
  }
}

class GnutlsKey : public LibraryKey {
 public:
  explicit GnutlsKey(const std::string& uri) {
    Check(gnutls_privkey_init(&key_), "no key");
    const int result = gnutls_privkey_import_url(key_, uri.c_str(), 0);
    if (result < 0) gnutls_privkey_deinit(key_);
    Check(result, "the key cannot be used");
  }
  ~GnutlsKey() override { gnutls_privkey_deinit(key_); }
  GnutlsKey(const GnutlsKey&) = delete;
  GnutlsKey& operator=(const GnutlsKey&) = delete;

  Bytes Sign(const Bytes& digest) override {
    const gnutls_datum_t hash = {const_cast<unsigned char*>(digest.data()),
                                 static_cast<unsigned>(digest.size())};
    gnutls_datum_t signature = {};
    if (gnutls_privkey_sign_hash(key_, GNUTLS_DIG_SHA256, 0, &hash, &signature) < 0) return {};
    Bytes result(signature.data, signature.data + signature.size);
    gnutls_free(signature.data);
    return result;
  }

 private:
  gnutls_privkey_t key_ = nullptr;
};

class GnutlsLibrary : public KeyLibrary {
 public:
  explicit GnutlsLibrary(const std::filesystem::path& module) {
    Check(gnutls_pkcs11_init(GNUTLS_PKCS11_FLAG_MANUAL, nullptr), "PKCS#11 cannot be used");
    const int result = gnutls_pkcs11_add_provider(module.c_str(), nullptr);
    if (result < 0) gnutls_pkcs11_deinit();
    Check(result, "the module cannot be used");
  }
  ~GnutlsLibrary() override { gnutls_pkcs11_deinit(); }
  GnutlsLibrary(const GnutlsLibrary&) = delete;
  GnutlsLibrary& operator=(const GnutlsLibrary&) = delete;

  std::unique_ptr<LibraryKey> Key(const std::string& label, std::uint8_t id) override {
    return std::make_unique<GnutlsKey>(PrivateKeyUri(label, id));
  }
};

}  // namespace

std::unique_ptr<KeyLibrary> OpenGnutls(const std::filesystem::path& module) {
  return std::make_unique<GnutlsLibrary>(module);
}

std::string PrivateKeyUri(const std::string& label, std::uint8_t id) {
  std::array<char, 8> hex = {};
  std::snprintf(hex.data(), hex.size(), "%02x", id);
  return "pkcs11:token=" + label + ";id=%" + hex.data() + ";type=private";
}

}  // namespace kelvrin::bench
