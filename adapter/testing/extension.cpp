#include "adapter/testing/extension.h"

#include <algorithm>
#include <array>

#include "p11/bringup.h"
#include "p11/loader.h"
#include "p11/lookup.h"
#include "p11/operations.h"

namespace kelvrin::adapter {
namespace {

constexpr CK_ULONG kMostCertificates = 20;
constexpr CK_ULONG kMostMechanisms = 20;
constexpr std::array<std::pair<CK_ATTRIBUTE_TYPE, const char*>, 4> kUsages = {
    {{CKA_VERIFY, "signs"}, {CKA_ENCRYPT, "encrypts"}, {CKA_WRAP, "wraps"}, {CKA_DERIVE, "agrees"}},
};

}  // namespace

CK_RV Extension::BringUp() {
  return init(path_.c_str(), &module, &p11, &slot, &session, reader_name_.c_str());
}

CK_RV Extension::SetUp() {
  if (const CK_RV result = BringUp(); result != CKR_OK) return result;
  std::array<char, kCardNumberSize> number = {};
  get_card_no(p11, slot, number.data());
  card_number = number.data();
  CK_OBJECT_CLASS wanted = CKO_CERTIFICATE;
  CK_ATTRIBUTE attribute = {CKA_CLASS, &wanted, sizeof(wanted)};
  CK_RV result = p11->C_FindObjectsInit(session, &attribute, 1);
  if (result != CKR_OK) return result;
  std::array<CK_OBJECT_HANDLE, kMostCertificates> found = {};
  CK_ULONG count = found.size();
  result = p11->C_FindObjects(session, found.data(), found.size(), &count);
  for (CK_ULONG i = 0; i < count && result == CKR_OK; ++i) result = ReadCertificate(found[i]);
  return result;
}

CK_RV Extension::ReadCertificate(CK_OBJECT_HANDLE certificate) {
  CertInfo info;
  CK_RV result = get_cert_info(p11, session, certificate, &info);
  if (result != CKR_OK) return result;
  const CK_BYTE id = info.id[0];
  listed.push_back(id);
  labels.emplace_back(reinterpret_cast<const char*>(info.label));
  public_keys[id] = PublicKeyOf(info.value, info.value_len);
  CK_OBJECT_HANDLE key = CK_INVALID_HANDLE;
  result = get_pub_key(p11, session, info.id, info.id_len, &key);
  if (result != CKR_OK) return result;
  std::array<char, kLabelSize> label = {};
  get_label(p11, session, key, label.data());
  key_labels[id] = label.data();
  std::string text;
  for (std::size_t i = 0; i < kUsages.size(); ++i) {
    // A flag that cannot be read keeps the value of the key before, as it does in the extension.
    is_attr_supported(p11, session, key, kUsages[i].first, &flags_[i]);
    if (flags_[i] == CK_TRUE) text += (text.empty() ? "" : " ") + std::string(kUsages[i].second);
  }
  usage[id] = text;
  return CKR_OK;
}

void Extension::Remove() {
  if (p11 != nullptr) p11->C_Finalize(nullptr);
  if (module != nullptr) C_UnloadModule(module);
  p11 = nullptr;
  module = nullptr;
}

CK_RV Extension::Supports(CK_BYTE id, CK_ATTRIBUTE_TYPE flag_type, CK_MECHANISM_TYPE mechanism,
                          bool* answer) {
  *answer = false;
  CK_OBJECT_HANDLE key = CK_INVALID_HANDLE;
  CK_RV result = get_pub_key(p11, session, &id, 1, &key);
  if (result != CKR_OK) return result;
  CK_BBOOL flag = CK_FALSE;
  is_attr_supported(p11, session, key, flag_type, &flag);
  if (flag != CK_TRUE) return CKR_OK;
  std::array<CK_MECHANISM_TYPE, kMostMechanisms> list = {};
  CK_ULONG count = list.size();
  result = get_mechanism_list(p11, session, key, list.data(), &count);
  if (result != CKR_OK) return result;
  const auto end = list.begin() + static_cast<std::ptrdiff_t>(count);
  *answer = std::find(list.begin(), end, mechanism) != end;
  return CKR_OK;
}

CK_RV Extension::LogIn(std::string pin) {
  return p11->C_Login(session, CKU_USER, reinterpret_cast<CK_BYTE*>(pin.data()), pin.size());
}

CK_RV Extension::FindKey(CK_BYTE id, CK_OBJECT_HANDLE* key) {
  CK_BBOOL needs_login = CK_TRUE;
  CK_RV result = login_required(p11, session, &needs_login);
  if (result != CKR_OK) return result;
  if (needs_login == CK_TRUE) return CKR_USER_NOT_LOGGED_IN;
  *key = CK_INVALID_HANDLE;
  result = get_priv_key(p11, session, &id, 1, key);
  return result == CKR_OK && *key == CK_INVALID_HANDLE ? kNoKey : result;
}

CK_RV Extension::Sign(CK_BYTE id, CK_MECHANISM_TYPE mechanism, const Bytes& data, Bytes* signature,
                      CK_ULONG room) {
  CK_OBJECT_HANDLE key = CK_INVALID_HANDLE;
  CK_RV result = FindKey(id, &key);
  if (result != CKR_OK) return result;
  signature->assign(room, 0);
  CK_ULONG size = room;
  result = sign(p11, session, key, mechanism, data.data(), data.size(), signature->data(), &size);
  if (result == CKR_OK) signature->resize(size);
  return result;
}

CK_RV Extension::Decrypt(CK_BYTE id, CK_MECHANISM_TYPE mechanism, const Bytes& sealed,
                         Bytes* opened) {
  CK_OBJECT_HANDLE key = CK_INVALID_HANDLE;
  CK_RV result = FindKey(id, &key);
  if (result != CKR_OK) return result;
  opened->assign(kResultSize, 0);
  CK_ULONG size = opened->size();
  result =
      decrypt(p11, session, key, mechanism, sealed.data(), sealed.size(), opened->data(), &size);
  if (result == CKR_OK) opened->resize(size);
  return result;
}

CK_RV Extension::Agree(CK_BYTE id, const Bytes& point, Bytes* secret) {
  CK_OBJECT_HANDLE key = CK_INVALID_HANDLE;
  CK_RV result = FindKey(id, &key);
  if (result != CKR_OK) return result;
  secret->assign(kResultSize, 0);
  CK_ULONG size = 0;
  result = derive_key(p11, session, key, CKM_ECDH1_DERIVE, point.data(), point.size(),
                      secret->data(), &size);
  if (result == CKR_OK) secret->resize(size);
  return result;
}

bool Extension::SignsWith(EVP_PKEY* key) {
  const Bytes digest(32, 0x5c);
  Bytes signature;
  return Sign(2, CKM_ECDSA, digest, &signature) == CKR_OK && VerifyEcdsa(key, digest, signature);
}

}  // namespace kelvrin::adapter
