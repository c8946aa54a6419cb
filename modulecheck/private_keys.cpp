#include "modulecheck/private_keys.h"

#include <algorithm>
#include <array>

#include "modulecheck/rsa_public.h"

namespace kelvrin::modulecheck {
namespace {

constexpr std::string_view kData =
    "modulecheck signs this text to try the module, and nothing else.";
static_assert(kData.size() == 64);
constexpr std::size_t kSha256Size = 32;
constexpr std::size_t kLeastBlock = 64;

// The private keys of all certificates, in their order.
std::vector<Key> CertifiedKeys(const Module& module, CK_SESSION_HANDLE session) {
  std::vector<Bytes> seen;
  std::vector<Key> keys;
  for (const CK_OBJECT_HANDLE certificate : FindClass(module, session, CKO_CERTIFICATE)) {
    const std::optional<Bytes> id = ReadBytes(module, session, certificate, CKA_ID);
    if (!id || id->empty() || std::find(seen.begin(), seen.end(), *id) != seen.end()) continue;
    seen.push_back(*id);
    const std::vector<Key> found = ReadKeysById(module, session, CKO_PRIVATE_KEY, *id);
    if (!found.empty()) keys.push_back(found.front());
  }
  return keys;
}

// Not every module tells these of a private key.
void AddPublicParts(const Module& module, CK_SESSION_HANDLE session, Key* key) {
  for (const Key& pair : ReadKeysById(module, session, CKO_PUBLIC_KEY, key->id)) {
    if (pair.type != key->type) continue;
    if (key->modulus.empty()) key->modulus = pair.modulus;
    if (key->exponent.empty()) key->exponent = pair.exponent;
    if (key->ec_params.empty()) key->ec_params = pair.ec_params;
    key->ec_point = pair.ec_point;
    return;
  }
}

bool WantsLogin(const Module& module, CK_SESSION_HANDLE session, const Key& key) {
  return ReadFlag(module, session, key.handle, CKA_ALWAYS_AUTHENTICATE);
}

using OperationCall = CK_RV (*)(CK_SESSION_HANDLE, CK_BYTE*, CK_ULONG, CK_BYTE*, CK_ULONG*);

// The second call of an operation.
OperationResult Finish(OperationCall function, const char* name, CK_SESSION_HANDLE session,
                       std::span<const CK_BYTE> data, CK_ULONG room) {
  // More than the module is told of: what it writes beyond does no harm.
  std::array<CK_BYTE, 4 * kOperationRoom> buffer = {};
  CK_ULONG size = room;
  OperationResult result = {.call = name};
  result.result =
      function(session, const_cast<CK_BYTE*>(data.data()), data.size(), buffer.data(), &size);
  if (result.result == CKR_OK) {
    result.output.assign(buffer.begin(), buffer.begin() + static_cast<long>(std::min(size, room)));
  }
  return result;
}

}  // namespace

std::optional<Key> FindPrivateKey(const Module& module, CK_SESSION_HANDLE session, CK_KEY_TYPE type,
                                  CK_ATTRIBUTE_TYPE usage) {
  std::vector<Key> keys = CertifiedKeys(module, session);
  std::erase_if(keys, [&](const Key& key) {
    return key.type != type || !ReadFlag(module, session, key.handle, usage);
  });
  if (keys.empty()) return std::nullopt;
  const auto easy = std::find_if(keys.begin(), keys.end(),
                                 [&](const Key& key) { return !WantsLogin(module, session, key); });
  Key key = easy == keys.end() ? keys.front() : *easy;
  AddPublicParts(module, session, &key);
  return key;
}

std::vector<Key> FindContextLoginKeys(const Module& module, CK_SESSION_HANDLE session) {
  std::vector<Key> keys = CertifiedKeys(module, session);
  std::erase_if(keys, [&](const Key& key) {
    return !WantsLogin(module, session, key) || !ReadFlag(module, session, key.handle, CKA_SIGN);
  });
  for (Key& key : keys) AddPublicParts(module, session, &key);
  return keys;
}

std::span<const CK_BYTE> ProbeData(std::size_t size) {
  return {reinterpret_cast<const CK_BYTE*>(kData.data()), size};
}

OperationResult Sign(const Module& module, CK_SESSION_HANDLE session, const Key& key,
                     CK_MECHANISM_TYPE mechanism, std::span<const CK_BYTE> data, CK_ULONG room) {
  CK_MECHANISM used = {mechanism, nullptr, 0};
  const CK_RV result = module.p11()->C_SignInit(session, &used, key.handle);
  if (result != CKR_OK) return {"C_SignInit", result, {}};
  return Finish(module.p11()->C_Sign, "C_Sign", session, data, room);
}

OperationResult Decrypt(const Module& module, CK_SESSION_HANDLE session, const Key& key,
                        CK_MECHANISM_TYPE mechanism, std::span<const CK_BYTE> data) {
  CK_MECHANISM used = {mechanism, nullptr, 0};
  const CK_RV result = module.p11()->C_DecryptInit(session, &used, key.handle);
  if (result != CKR_OK) return {"C_DecryptInit", result, {}};
  return Finish(module.p11()->C_Decrypt, "C_Decrypt", session, data, kOperationRoom);
}

OperationResult SignPlainly(const Module& module, CK_SESSION_HANDLE session, const Key& key,
                            CK_ULONG room) {
  const auto digest = ProbeData(kSha256Size);
  if (key.type != CKK_RSA) return Sign(module, session, key, CKM_ECDSA, digest, room);
  const std::size_t size = ModulusSize({key.modulus, key.exponent});
  if (size >= kLeastBlock && Offers(module, CKM_RSA_X_509)) {
    return Sign(module, session, key, CKM_RSA_X_509, SignatureBlock(digest, size), room);
  }
  return Sign(module, session, key, CKM_RSA_PKCS, digest, room);
}

}  // namespace kelvrin::modulecheck
