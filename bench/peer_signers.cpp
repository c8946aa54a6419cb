#include "bench/peer_signers.h"

// OpenSSL 3 calls engines deprecated; the PKCS#11 engine is what programs have all the same.
#define OPENSSL_SUPPRESS_DEPRECATED
#include <gnutls/abstract.h>
#include <gnutls/gnutls.h>
#include <gnutls/pkcs11.h>
#include <openssl/engine.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>

#include <array>
#include <cstdio>
#include <memory>
#include <stdexcept>

#include "tests/card/softhsm_card.h"

namespace kelvrin::bench {
namespace {

void CheckGnutls(int result, const char* what) {
  if (result >= 0) return;
  throw std::runtime_error(std::string("GnuTLS: ") + what + ": " + gnutls_strerror(result));
}

void CheckEngine(bool is_fine, const char* what) {
  if (!is_fine) throw std::runtime_error(std::string("OpenSSL's PKCS#11 engine: ") + what);
}

// The module is loaded once and stays.
void LoadIntoGnutls() {
  CheckGnutls(gnutls_pkcs11_init(GNUTLS_PKCS11_FLAG_MANUAL, nullptr), "PKCS#11 cannot be used");
  CheckGnutls(gnutls_pkcs11_add_provider(SoftHsmCard::Module().c_str(), nullptr),
              "the module cannot be used");
}

ENGINE* OpenEngine() {
  ENGINE_load_builtin_engines();
  ENGINE* const engine = ENGINE_by_id("pkcs11");
  CheckEngine(engine != nullptr, "not installed (package libengine-pkcs11-openssl)");
  const std::string module = SoftHsmCard::Module();
  CheckEngine(ENGINE_ctrl_cmd_string(engine, "MODULE_PATH", module.c_str(), 0) == 1 &&
                  ENGINE_init(engine) == 1,
              "the module cannot be used");
  return engine;
}

}  // namespace

Signer GnutlsSigner(const std::string& uri) {
  [[maybe_unused]] static const bool is_loaded = (LoadIntoGnutls(), true);
  gnutls_privkey_t made = nullptr;
  CheckGnutls(gnutls_privkey_init(&made), "no key");
  const std::shared_ptr<gnutls_privkey_st> key(made, gnutls_privkey_deinit);
  CheckGnutls(gnutls_privkey_import_url(made, uri.c_str(), 0), "the key cannot be used");
  return [key](const Bytes& digest) -> Bytes {
    const gnutls_datum_t hash = {const_cast<unsigned char*>(digest.data()),
                                 static_cast<unsigned>(digest.size())};
    gnutls_datum_t signature = {};
    if (gnutls_privkey_sign_hash(key.get(), GNUTLS_DIG_SHA256, 0, &hash, &signature) < 0) return {};
    Bytes result(signature.data, signature.data + signature.size);
    gnutls_free(signature.data);
    return result;
  };
}

Signer EngineSigner(const std::string& uri) {
  static ENGINE* const engine = OpenEngine();
  const std::shared_ptr<EVP_PKEY> key(
      ENGINE_load_private_key(engine, uri.c_str(), nullptr, nullptr), EVP_PKEY_free);
  CheckEngine(key != nullptr, "the key cannot be used");
  const std::shared_ptr<EVP_PKEY_CTX> context(EVP_PKEY_CTX_new(key.get(), engine),
                                              EVP_PKEY_CTX_free);
  CheckEngine(EVP_PKEY_sign_init(context.get()) == 1, "the key cannot sign");
  if (EVP_PKEY_get_base_id(key.get()) == EVP_PKEY_RSA) {
    CheckEngine(EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_PKCS1_PADDING) == 1, "no padding");
  }
  CheckEngine(EVP_PKEY_CTX_set_signature_md(context.get(), EVP_sha256()) == 1, "no SHA-256");
  return [key, context](const Bytes& digest) -> Bytes {
    std::size_t size = static_cast<std::size_t>(EVP_PKEY_get_size(key.get()));
    Bytes signature(size);
    const int result =
        EVP_PKEY_sign(context.get(), signature.data(), &size, digest.data(), digest.size());
    signature.resize(result == 1 ? size : 0);
    return signature;
  };
}

std::string PrivateKeyUri(const std::string& label, std::uint8_t id) {
  std::array<char, 8> hex = {};
  std::snprintf(hex.data(), hex.size(), "%02x", id);
  return "pkcs11:token=" + label + ";id=%" + hex.data() + ";type=private";
}

}  // namespace kelvrin::bench
