// The extension's whole road.
#include <algorithm>
#include <array>

#include "adapter/testing/extension.h"
#include "p11/diagnostics.h"
#include "p11/operations.h"
#include "tests/module/test_keys.h"

namespace kelvrin::adapter {
namespace {

using Bytes = Extension::Bytes;

constexpr CK_BYTE kRsa = 1;
constexpr CK_BYTE kEc = 2;
constexpr std::size_t kModulus = 256;

Bytes Message() { return {'s', 'e', 'c', 'r', 'e', 't'}; }

// A PKCS#1 signature block of a SHA-256 digest.
Bytes SignatureBlock() {
  Bytes info = {0x30, 0x31, 0x30, 0x0d, 0x06, 0x09, 0x60, 0x86, 0x48, 0x01,
                0x65, 0x03, 0x04, 0x02, 0x01, 0x05, 0x00, 0x04, 0x20};
  info.insert(info.end(), 32, 0x5c);
  Bytes block(kModulus, 0xff);
  block[0] = 0;
  block[1] = 1;
  block[kModulus - info.size() - 1] = 0;
  std::copy(info.begin(), info.end(), block.end() - static_cast<std::ptrdiff_t>(info.size()));
  return block;
}

// A block as PSS makes it: nothing but its last byte is told from chance.
Bytes PssBlock() {
  Bytes block(kModulus);
  for (std::size_t i = 0; i < block.size(); ++i) block[i] = static_cast<CK_BYTE>(i * 31 + 7);
  block.back() = 0xbc;
  return block;
}

class Road {
 public:
  explicit Road(Extension& extension) : extension_(extension) {}

  bool SetUp() {
    if (!Succeeded("set-up", extension_.SetUp())) return false;
    if (extension_.card_number != "4711") Note("card number", extension_.card_number);
    ExpectUsage(kRsa, "signs encrypts wraps");
    ExpectUsage(kEc, "signs agrees");
    for (const std::string& label : extension_.labels) ExpectAscii("certificate", label);
    for (const auto& [id, label] : extension_.key_labels) ExpectAscii("public key", label);
    std::string ids;
    for (const CK_BYTE id : extension_.listed) ids += " " + std::to_string(id);
    if (ids != " 1 2") Note("listed", ids.substr(1));
    // What is not listed is never asked for.
    return extension_.public_keys[kRsa] != nullptr && extension_.public_keys[kEc] != nullptr;
  }

  void AskForSupport() {
    ExpectSupport(kRsa, CKA_VERIFY, CKM_RSA_X_509, "CKM_RSA_X_509");
    ExpectSupport(kRsa, CKA_ENCRYPT, CKM_RSA_PKCS, "CKM_RSA_PKCS");
    ExpectSupport(kEc, CKA_VERIFY, CKM_ECDSA, "CKM_ECDSA");
    ExpectSupport(kEc, CKA_VERIFY, CKM_ECDSA_SHA1, "CKM_ECDSA_SHA1");
  }

  bool LogIn(const std::string& pin) {
    CK_OBJECT_HANDLE key = CK_INVALID_HANDLE;
    if (extension_.FindKey(kRsa, &key) != CKR_USER_NOT_LOGGED_IN) Note("login", "is not needed");
    return Succeeded("login", extension_.LogIn(pin));
  }

  void Sign() {
    SignBlock("PKCS#1 block", SignatureBlock());
    SignBlock("PSS block", PssBlock());
    SignBlock("51 bytes", Bytes(51, 0x31));
    SignDigest(CKM_ECDSA_SHA1, 20);
    for (const std::size_t size : {32U, 48U, 64U}) SignDigest(CKM_ECDSA, size);
  }

  void Decrypt() {
    DecryptText("CKM_RSA_PKCS text", CKM_RSA_PKCS, false);
    DecryptText("CKM_RSA_X_509 text", CKM_RSA_X_509, false);
    DecryptText("short CKM_RSA_X_509 text", CKM_RSA_X_509, true);
  }

  void Agree() {
    for (const char* round : {"round 1", "round 2"}) {
      AgreeOnce(std::string("raw point, ") + round, false);
      AgreeOnce(std::string("DER point, ") + round, true);
    }
  }

  void FailAndGoOn() {
    FailToRead(CKA_PRIVATE_EXPONENT, kResultSize, CKR_ATTRIBUTE_SENSITIVE);
    FailToRead(CKA_EC_POINT, kResultSize, CKR_ATTRIBUTE_TYPE_INVALID);
    FailToRead(CKA_MODULUS, 8, CKR_BUFFER_TOO_SMALL);
    const Bytes block = SignatureBlock();
    Bytes result;
    if (extension_.Sign(kRsa, CKM_RSA_X_509, block, &result, 10) == CKR_OK) {
      Note("little room", "enough");
    }
    Succeeded("after little room", extension_.Sign(kRsa, CKM_RSA_X_509, block, &result));
    if (extension_.Sign(kRsa, CKM_RSA_PKCS, Bytes(300, 1), &result) == CKR_OK) {
      Note("300 bytes", "signed");
    }
    Succeeded("after 300 bytes", extension_.Sign(kEc, CKM_ECDSA, Bytes(32, 1), &result));
    if (extension_.Decrypt(kRsa, CKM_RSA_PKCS, Bytes(100, 1), &result) == CKR_OK) {
      Note("nonsense", "decrypted");
    }
    const Bytes sealed = EncryptPkcs1(KeyOf(kRsa), Message());
    Succeeded("after nonsense", extension_.Decrypt(kRsa, CKM_RSA_PKCS, sealed, &result));
  }

  std::vector<std::string> failures;

 private:
  EVP_PKEY* KeyOf(CK_BYTE id) { return extension_.public_keys.at(id).get(); }
  void Note(const std::string& step, const std::string& what) {
    failures.push_back(step + ": " + what);
  }
  bool Succeeded(const std::string& step, CK_RV result) {
    if (result != CKR_OK) Note(step, result == Extension::kNoKey ? "no key" : CKR2Str(result));
    return result == CKR_OK;
  }
  void ExpectUsage(CK_BYTE id, const std::string& expected) {
    const std::string& seen = extension_.usage[id];
    if (seen != expected) Note("usage of " + std::to_string(id), "'" + seen + "'");
  }
  void ExpectAscii(const std::string& what, const std::string& label) {
    const auto is_odd = [](char c) { return static_cast<unsigned char>(c) >= 0x80; };
    if (std::any_of(label.begin(), label.end(), is_odd)) Note(what, "its label is not ASCII");
  }
  void ExpectSupport(CK_BYTE id, CK_ATTRIBUTE_TYPE usage, CK_MECHANISM_TYPE mechanism,
                     const char* name) {
    bool answer = false;
    const std::string step = std::string("support of ") + name;
    if (Succeeded(step, extension_.Supports(id, usage, mechanism, &answer)) && !answer) {
      Note(step, "no");
    }
  }
  void SignBlock(const std::string& step, const Bytes& block) {
    Bytes signature;
    if (!Succeeded(step, extension_.Sign(kRsa, CKM_RSA_X_509, block, &signature))) return;
    Bytes expected(kModulus - block.size(), 0);
    expected.insert(expected.end(), block.begin(), block.end());
    const bool is_right =
        signature.size() == kModulus && RawRsaPublic(KeyOf(kRsa), signature) == expected;
    if (!is_right) Note(step, "wrong signature");
  }
  void SignDigest(CK_MECHANISM_TYPE mechanism, std::size_t size) {
    const std::string step = "digest of " + std::to_string(size) + " bytes";
    const Bytes digest(size, 0x5c);
    Bytes signature;
    if (!Succeeded(step, extension_.Sign(kEc, mechanism, digest, &signature))) return;
    if (!VerifyEcdsa(KeyOf(kEc), digest, signature)) Note(step, "wrong signature");
  }
  void DecryptText(const std::string& step, CK_MECHANISM_TYPE mechanism, bool drops_zero) {
    Bytes sealed = EncryptPkcs1(KeyOf(kRsa), Message());
    if (drops_zero) {
      while (sealed.front() != 0) sealed = EncryptPkcs1(KeyOf(kRsa), Message());
      sealed.erase(sealed.begin());
    }
    Bytes opened;
    if (!Succeeded(step, extension_.Decrypt(kRsa, mechanism, sealed, &opened))) return;
    const std::size_t size = mechanism == CKM_RSA_X_509 ? kModulus : Message().size();
    const Bytes end = Message();
    const bool is_right =
        opened.size() == size && std::equal(end.rbegin(), end.rend(), opened.rbegin());
    if (!is_right) Note(step, "wrong text");
  }
  void AgreeOnce(const std::string& step, bool is_der) {
    const TestKey peer = TestEcKey(7);
    const Bytes own = PointOfKey(KeyOf(kEc));
    Bytes point = PointOfKey(peer.get());
    if (is_der) point.insert(point.begin(), {0x04, static_cast<CK_BYTE>(point.size())});
    Bytes secret;
    if (!Succeeded(step, extension_.Agree(kEc, point, &secret))) return;
    if (secret != DeriveSecret(peer.get(), own)) Note(step, "wrong secret");
  }
  void FailToRead(CK_ATTRIBUTE_TYPE type, CK_ULONG room, CK_RV expected) {
    const std::string step = std::string("length after ") + CKR2Str(expected);
    CK_OBJECT_HANDLE key = CK_INVALID_HANDLE;
    if (!Succeeded(step, extension_.FindKey(kRsa, &key))) return;
    Bytes value(kResultSize);
    CK_ATTRIBUTE attribute = {type, value.data(), room};
    const CK_RV result =
        extension_.p11->C_GetAttributeValue(extension_.session, key, &attribute, 1);
    if (result != expected) Note(step, CKR2Str(result));
    if (attribute.ulValueLen != 0) Note(step, std::to_string(attribute.ulValueLen));
  }

  Extension& extension_;
};

}  // namespace

std::vector<std::string> Walk(Extension& extension, const std::string& pin) {
  Road road(extension);
  if (!road.SetUp()) return road.failures;
  road.AskForSupport();
  if (!road.LogIn(pin)) return road.failures;
  road.Sign();
  road.Decrypt();
  road.Agree();
  road.FailAndGoOn();
  return road.failures;
}

}  // namespace kelvrin::adapter
