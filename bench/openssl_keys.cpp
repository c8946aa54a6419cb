// OpenSSL 3 calls engines deprecated; the PKCS#11 engine is what programs have all the same.
#define OPENSSL_SUPPRESS_DEPRECATED
#include <openssl/engine.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>

#include <stdexcept>

#include "bench/library_keys.h"

namespace kelvrin::bench {
namespace {

void Check(bool is_fine, const char* what) {
  if (!is_fine) throw std::runtime_error(std::string("OpenSSL's PKCS#11 engine: ") + what);
}

class EngineKey : public LibraryKey {
 public:
  EngineKey(ENGINE* engine, const std::string& uri)
      : key_(ENGINE_load_private_key(engine, uri.c_str(), nullptr, nullptr), EVP_PKEY_free) {
    Check(key_ != nullptr, "the key cannot be used");
    context_.reset(EVP_PKEY_CTX_new(key_.get(), engine));
    Check(context_ != nullptr && EVP_PKEY_sign_init(context_.get()) == 1, "the key cannot sign");
    if (EVP_PKEY_get_base_id(key_.get()) == EVP_PKEY_RSA) {
      Check(EVP_PKEY_CTX_set_rsa_padding(context_.get(), RSA_PKCS1_PADDING) == 1, "no padding");
    }
    Check(EVP_PKEY_CTX_set_signature_md(context_.get(), EVP_sha256()) == 1, "no SHA-256");
  }

  Bytes Sign(const Bytes& digest) override {
    std::size_t size = static_cast<std::size_t>(EVP_PKEY_get_size(key_.get()));
    Bytes signature(size);
    if (EVP_PKEY_sign(context_.get(), signature.data(), &size, digest.data(), digest.size()) != 1) {
      return {};
    }
    signature.resize(size);
    return signature;
  }

 private:
  std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key_;
  std::unique_ptr<EVP_PKEY_CTX, decltype(&EVP_PKEY_CTX_free)> context_{nullptr, EVP_PKEY_CTX_free};
};

class Engine : public KeyLibrary {
 public:
  explicit Engine(const std::filesystem::path& module) {
    ENGINE_load_builtin_engines();
    engine_ = ENGINE_by_id("pkcs11");
    Check(engine_ != nullptr, "not installed (package libengine-pkcs11-openssl)");
    const bool is_up = ENGINE_ctrl_cmd_string(engine_, "MODULE_PATH", module.c_str(), 0) == 1 &&
                       ENGINE_init(engine_) == 1;
    if (!is_up) ENGINE_free(engine_);
    Check(is_up, "the module cannot be used");
  }
  ~Engine() override {
    ENGINE_finish(engine_);
    ENGINE_free(engine_);
  }
  Engine(const Engine&) = delete;
  Engine& operator=(const Engine&) = delete;

  std::unique_ptr<LibraryKey> Key(const std::string& label, std::uint8_t id) override {
    return std::make_unique<EngineKey>(engine_, PrivateKeyUri(label, id));
  }

 private:
  ENGINE* engine_ = nullptr;
};

}  // namespace

std::unique_ptr<KeyLibrary> OpenOpensslEngine(const std::filesystem::path& module) {
  return std::make_unique<Engine>(module);
}

}  // namespace kelvrin::bench
