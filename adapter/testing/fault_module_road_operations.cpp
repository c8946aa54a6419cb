// The road's operations with private keys.
#include <algorithm>
#include <array>

#include "adapter/testing/fault_module_road.h"
#include "p11/diagnostics.h"
#include "p11/operations.h"

namespace kelvrin::adapter {
namespace {

using Bytes = Road::Bytes;

constexpr CK_BYTE kRsaId = 1;
constexpr CK_BYTE kEcId = 2;
constexpr std::size_t kModulus = 256;
constexpr std::size_t kSha1Size = 20;

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

Bytes Message() { return {'s', 'e', 'c', 'r', 'e', 't'}; }

bool EndsWith(const Bytes& whole, const Bytes& end) {
  return whole.size() >= end.size() && std::equal(end.rbegin(), end.rend(), whole.rbegin());
}

}  // namespace

CK_RV Road::SignWith(CK_BYTE id, CK_MECHANISM_TYPE mechanism, const Bytes& data, Bytes* signature,
                     CK_ULONG room) {
  CK_OBJECT_HANDLE key = CK_INVALID_HANDLE;
  CK_RV result = FindPrivateKey(id, &key);
  if (result != CKR_OK) return result;
  signature->assign(room, 0);
  CK_ULONG size = room;
  result = sign(p11_, session_, key, mechanism, data.data(), data.size(), signature->data(), &size);
  if (result == CKR_OK) signature->resize(size);
  return result;
}

void Road::SignBlock(const std::string& step, const Bytes& block) {
  Bytes signature;
  if (!Succeeded(step, SignWith(kRsaId, CKM_RSA_X_509, block, &signature))) return;
  Bytes expected(kModulus - block.size(), 0);
  expected.insert(expected.end(), block.begin(), block.end());
  const bool is_right = signature.size() == kModulus &&
                        RawRsaPublic(public_keys_.at(kRsaId).get(), signature) == expected;
  if (!is_right) Note(step, "wrong signature");
}

void Road::SignDigest(CK_MECHANISM_TYPE mechanism, std::size_t size) {
  const std::string step = "digest of " + std::to_string(size) + " bytes";
  const Bytes digest(size, 0x5c);
  Bytes signature;
  if (!Succeeded(step, SignWith(kEcId, mechanism, digest, &signature))) return;
  if (!VerifyEcdsa(public_keys_.at(kEcId).get(), digest, signature)) Note(step, "wrong signature");
}

void Road::Sign() {
  SignBlock("PKCS#1 block", SignatureBlock());
  SignBlock("PSS block", PssBlock());
  SignBlock("51 bytes", Bytes(51, 0x31));
  SignDigest(CKM_ECDSA_SHA1, kSha1Size);
  for (const std::size_t size : {32U, 48U, 64U}) SignDigest(CKM_ECDSA, size);
}

CK_RV Road::DecryptWith(CK_MECHANISM_TYPE mechanism, const Bytes& sealed, Bytes* opened) {
  CK_OBJECT_HANDLE key = CK_INVALID_HANDLE;
  CK_RV result = FindPrivateKey(kRsaId, &key);
  if (result != CKR_OK) return result;
  opened->assign(kResultSize, 0);
  CK_ULONG size = opened->size();
  result =
      decrypt(p11_, session_, key, mechanism, sealed.data(), sealed.size(), opened->data(), &size);
  if (result == CKR_OK) opened->resize(size);
  return result;
}

void Road::DecryptText(const std::string& step, CK_MECHANISM_TYPE mechanism, bool drops_zero) {
  EVP_PKEY* const key = public_keys_.at(kRsaId).get();
  Bytes sealed = EncryptPkcs1(key, Message());
  if (drops_zero) {
    while (sealed.front() != 0) sealed = EncryptPkcs1(key, Message());
    sealed.erase(sealed.begin());
  }
  Bytes opened;
  if (!Succeeded(step, DecryptWith(mechanism, sealed, &opened))) return;
  const std::size_t expected = mechanism == CKM_RSA_X_509 ? kModulus : Message().size();
  if (opened.size() != expected || !EndsWith(opened, Message())) Note(step, "wrong text");
}

void Road::Decrypt() {
  DecryptText("CKM_RSA_PKCS text", CKM_RSA_PKCS, false);
  DecryptText("CKM_RSA_X_509 text", CKM_RSA_X_509, false);
  DecryptText("short CKM_RSA_X_509 text", CKM_RSA_X_509, true);
}

void Road::AgreeOnce(const std::string& step, bool is_der) {
  const OpensslKey peer = MakeP256Key();
  Bytes point = PublicPointOf(peer.get());
  if (is_der) point.insert(point.begin(), {0x04, static_cast<CK_BYTE>(point.size())});
  CK_OBJECT_HANDLE key = CK_INVALID_HANDLE;
  if (!Succeeded(step, FindPrivateKey(kEcId, &key))) return;
  Bytes secret(kResultSize);
  CK_ULONG size = 0;
  const CK_RV result = derive_key(p11_, session_, key, CKM_ECDH1_DERIVE, point.data(), point.size(),
                                  secret.data(), &size);
  if (!Succeeded(step, result)) return;
  secret.resize(size);
  if (secret != SharedSecret(peer.get(), public_keys_.at(kEcId).get())) Note(step, "wrong secret");
}

void Road::Agree() {
  for (int round = 1; round <= 2; ++round) {
    AgreeOnce("raw point, round " + std::to_string(round), false);
    AgreeOnce("DER point, round " + std::to_string(round), true);
  }
}

void Road::ReadWhatCannotBeRead() {
  CK_OBJECT_HANDLE key = CK_INVALID_HANDLE;
  if (!Succeeded("failed reads", FindPrivateKey(kRsaId, &key))) return;
  struct FailedRead {
    CK_ATTRIBUTE_TYPE type;
    CK_ULONG room;
    CK_RV expected;
  };
  constexpr std::array<FailedRead, 3> kReads = {{
      {CKA_PRIVATE_EXPONENT, kResultSize, CKR_ATTRIBUTE_SENSITIVE},
      {CKA_EC_POINT, kResultSize, CKR_ATTRIBUTE_TYPE_INVALID},
      {CKA_MODULUS, 8, CKR_BUFFER_TOO_SMALL},
  }};
  for (const FailedRead& read : kReads) {
    Bytes value(kResultSize);
    CK_ATTRIBUTE attribute = {read.type, value.data(), read.room};
    const CK_RV result = p11_->C_GetAttributeValue(session_, key, &attribute, 1);
    const std::string step = std::string("length after ") + CKR2Str(read.expected);
    if (result != read.expected) Note(step, CKR2Str(result));
    if (attribute.ulValueLen != 0) {
      const bool is_none = attribute.ulValueLen == CK_UNAVAILABLE_INFORMATION;
      Note(step, is_none ? "-1" : std::to_string(attribute.ulValueLen));
    }
  }
}

void Road::FailAndGoOn() {
  const Bytes block = SignatureBlock();
  Bytes result;
  if (SignWith(kRsaId, CKM_RSA_X_509, block, &result, 10) == CKR_OK) Note("little room", "enough");
  Succeeded("after little room", SignWith(kRsaId, CKM_RSA_X_509, block, &result));
  const Bytes too_much(300, 1);
  if (SignWith(kRsaId, CKM_RSA_PKCS, too_much, &result) == CKR_OK) Note("300 bytes", "signed");
  Succeeded("after 300 bytes", SignWith(kEcId, CKM_ECDSA, Bytes(32, 1), &result));
  if (DecryptWith(CKM_RSA_PKCS, Bytes(100, 1), &result) == CKR_OK) Note("nonsense", "decrypted");
  const Bytes sealed = EncryptPkcs1(public_keys_.at(kRsaId).get(), Message());
  Succeeded("after nonsense", DecryptWith(CKM_RSA_PKCS, sealed, &result));
}

}  // namespace kelvrin::adapter
