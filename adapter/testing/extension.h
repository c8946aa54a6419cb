// The extension as a module meets it: p11/'s functions, in the extension's order.
#pragma once

#include <p11-kit/pkcs11.h>

#include <filesystem>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "adapter/testing/openssl_check.h"

namespace kelvrin::adapter {

// One token of the extension. Each step returns the first result that the extension would give up
// at; -1 stands for a key that is not found.
class Extension {
 public:
  using Bytes = std::vector<unsigned char>;
  static constexpr CK_RV kNoKey = static_cast<CK_RV>(-1);

  explicit Extension(std::filesystem::path library, std::string reader_name = "Reader")
      : path_(std::move(library)), reader_name_(std::move(reader_name)) {}
  ~Extension() { Remove(); }
  Extension(const Extension&) = delete;
  Extension& operator=(const Extension&) = delete;

  // p11's init: a set-up at first, later a re-initialisation.
  CK_RV BringUp();
  // A bring-up, the card's number, and the certificates with their public keys.
  CK_RV SetUp();
  // C_Finalize, and the library closed, as when a token is released.
  void Remove();

  // Whether a public key's usage flag and allowed mechanisms say yes.
  CK_RV Supports(CK_BYTE id, CK_ATTRIBUTE_TYPE usage, CK_MECHANISM_TYPE mechanism, bool* answer);
  CK_RV LogIn(std::string pin);
  // A private key, as each operation begins: CKR_USER_NOT_LOGGED_IN where a login is needed.
  CK_RV FindKey(CK_BYTE id, CK_OBJECT_HANDLE* key);
  CK_RV Sign(CK_BYTE id, CK_MECHANISM_TYPE mechanism, const Bytes& data, Bytes* signature,
             CK_ULONG room = 1024);
  CK_RV Decrypt(CK_BYTE id, CK_MECHANISM_TYPE mechanism, const Bytes& sealed, Bytes* opened);
  CK_RV Agree(CK_BYTE id, const Bytes& point, Bytes* secret);

  // Whether an ECDSA signature by the key 02 succeeds and verifies with this public key.
  bool SignsWith(EVP_PKEY* key);

  void* module = nullptr;
  CK_FUNCTION_LIST* p11 = nullptr;
  CK_SLOT_ID slot = 0;
  CK_SESSION_HANDLE session = 0;
  // What the set-up has seen.
  std::string card_number;
  std::vector<std::string> labels;            // of the certificates
  std::vector<CK_BYTE> listed;                // first bytes of their CKA_IDs
  std::map<CK_BYTE, std::string> usage;       // by those
  std::map<CK_BYTE, std::string> key_labels;  // of the public keys
  std::map<CK_BYTE, OpensslKey> public_keys;

 private:
  CK_RV ReadCertificate(CK_OBJECT_HANDLE certificate);

  std::filesystem::path path_;
  std::string reader_name_;
  CK_BBOOL flags_[4] = {};
};

// The whole road: set-up, questions, login, signatures, decryptions, agreements, reads and
// operations that fail; all results checked by OpenSSL with the public keys of the certificates.
// The card has an RSA key 01 and a P-256 key 02. What failed, one line each, beginning with the
// step's name; the road goes on after a failure where the extension would.
std::vector<std::string> Walk(Extension& extension, const std::string& pin);

}  // namespace kelvrin::adapter
