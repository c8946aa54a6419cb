#include "adapter/objects/virtual_keys.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <utility>

#include "encoding/der.h"

namespace kelvrin::adapter {
namespace {

// A token has few certificates; one that changes them for ever does not fill the memory.
constexpr std::size_t kMaxKeys = 1024;

Bytes Number(CK_ULONG value) {
  Bytes bytes(sizeof(value));
  std::memcpy(bytes.data(), &value, sizeof(value));
  return bytes;
}

Bytes Flag(bool value) { return {static_cast<CK_BYTE>(value ? CK_TRUE : CK_FALSE)}; }

CK_ULONG BitsOf(const Bytes& modulus) {
  if (modulus.empty()) return 0;
  return (modulus.size() - 1) * 8 + static_cast<CK_ULONG>(std::bit_width(modulus.front()));
}

void AddKeyMaterial(const encoding::CertificateFacts& facts, VirtualKey* key) {
  auto& attributes = key->attributes;
  if (key->type == CKK_RSA) {
    attributes[CKA_MODULUS] = facts.modulus;
    attributes[CKA_MODULUS_BITS] = Number(BitsOf(facts.modulus));
    attributes[CKA_PUBLIC_EXPONENT] = facts.public_exponent;
    return;
  }
  attributes[CKA_EC_PARAMS] = facts.ec_parameters;
  attributes[CKA_EC_POINT] = encoding::WrapDer(encoding::kDerOctetString, facts.ec_point);
}

}  // namespace

std::optional<CK_OBJECT_HANDLE> VirtualKeys::Make(const Bytes& der, const Bytes& id,
                                                  const Bytes& label) {
  for (const auto& [handle, key] : keys_) {
    if (key.certificate == der && key.attributes.at(CKA_ID) == id) return handle;
  }
  const auto facts = encoding::ReadCertificate(der);
  if (!facts || !facts->key_type) return std::nullopt;
  const bool is_rsa = *facts->key_type == CKK_RSA;
  VirtualKey key;
  key.certificate = der;
  key.type = *facts->key_type;
  key.attributes = {
      {CKA_CLASS, Number(CKO_PUBLIC_KEY)},
      {CKA_KEY_TYPE, Number(key.type)},
      {CKA_TOKEN, Flag(true)},
      {CKA_PRIVATE, Flag(false)},
      {CKA_MODIFIABLE, Flag(false)},
      {CKA_LOCAL, Flag(false)},
      {CKA_ID, id},
      {CKA_LABEL, label},
      {CKA_SUBJECT, facts->subject},
      {CKA_VERIFY, Flag(true)},
      {CKA_VERIFY_RECOVER, Flag(is_rsa)},
      {CKA_ENCRYPT, Flag(is_rsa)},
      {CKA_WRAP, Flag(is_rsa)},
      {CKA_DERIVE, Flag(false)},
  };
  AddKeyMaterial(*facts, &key);
  if (keys_.size() == kMaxKeys) keys_.erase(keys_.begin());
  keys_[next_] = std::move(key);
  return next_++;
}

const VirtualKey* VirtualKeys::Find(CK_OBJECT_HANDLE handle) const {
  const auto found = keys_.find(handle);
  return found == keys_.end() ? nullptr : &found->second;
}

}  // namespace kelvrin::adapter
