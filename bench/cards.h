// What the benchmarks run on: SoftHSM tokens of several sizes, the module itself, and extension
// bundles with the adapter in front of one token each.
#pragma once

#include <p11-kit/pkcs11.h>

#include <filesystem>
#include <string>
#include <vector>

#include "platform/linux/host/testing/openssl_key.h"
#include "tests/card/softhsm_card.h"

namespace kelvrin::bench {

// The tokens, and a bundle for each, in one temporary folder that goes with the object. A token's
// objects are a certificate, a public and a private key under each of its CKA_IDs: 01 with
// RSA-2048, the others with P-256.
class Cards {
 public:
  // Makes a token for each number of certificates, which are 2 at least. Throws std::runtime_error.
  explicit Cards(const std::vector<int>& certificates);

  static std::string Label(int certificates);

  // A key on that token: "rsa" or "ec".
  host::testing::OpensslKey PublicKey(int certificates, const std::string& key) const;

  // X.appex, whose module is the adapter in front of that token.
  std::filesystem::path Bundle(int certificates) const;
  // X.appex, whose module is a copy of the memory module, without the adapter.
  std::filesystem::path MemoryBundle() const;

  // The library of a bundle's module.
  static std::filesystem::path ModuleOf(const std::filesystem::path& bundle);

  const std::string& pin() const { return card_.pin(); }

 private:
  void WriteBundle(const std::string& name, const std::filesystem::path& module,
                   const std::string& configuration) const;

  SoftHsmCard card_;
};

// SoftHSM itself: the very image that the adapters have behind them.
class RawModule {
 public:
  // Loads and initialises it without locks, as the adapter does. Throws std::runtime_error.
  RawModule();
  ~RawModule();
  RawModule(const RawModule&) = delete;
  RawModule& operator=(const RawModule&) = delete;

  CK_FUNCTION_LIST* functions() const { return functions_; }

  // Opens a session on the token with that label. Throws std::runtime_error.
  CK_SESSION_HANDLE OpenSession(const std::string& label) const;

  // Puts an object that is no key and no certificate on the token with that label. Throws
  // std::runtime_error.
  void AddDataObject(const std::string& label) const;

 private:
  void* library_ = nullptr;
  CK_FUNCTION_LIST* functions_ = nullptr;
};

// Runs a whole search and returns what it found. Throws std::runtime_error.
std::vector<CK_OBJECT_HANDLE> FindObjects(CK_FUNCTION_LIST* functions, CK_SESSION_HANDLE session,
                                          std::vector<CK_ATTRIBUTE> attributes);

// The private key with a CKA_ID of one byte. Throws std::runtime_error when there is none.
CK_OBJECT_HANDLE FindPrivateKey(CK_FUNCTION_LIST* functions, CK_SESSION_HANDLE session, CK_BYTE id);

}  // namespace kelvrin::bench
