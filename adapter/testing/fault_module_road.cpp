// The road as far as the login.
#include "adapter/testing/fault_module_road.h"

#include <openssl/x509.h>

#include <algorithm>
#include <array>
#include <memory>

#include "adapter/testing/fault_module.h"
#include "p11/bringup.h"
#include "p11/diagnostics.h"
#include "p11/loader.h"
#include "p11/lookup.h"
#include "p11/slots.h"

namespace kelvrin::adapter {
namespace {

constexpr CK_BYTE kRsaId = 1;
constexpr CK_BYTE kEcId = 2;
// What the token holds, in the order in which it is found.
constexpr const char* kContents = "01 02";
constexpr CK_ULONG kMostCertificates = 20;
constexpr CK_ULONG kMostMechanisms = 20;

std::string Hex(CK_BYTE byte) {
  constexpr const char* kDigits = "0123456789abcdef";
  return {kDigits[byte >> 4], kDigits[byte & 0xf]};
}

bool IsAscii(const unsigned char* text) {
  for (; *text != 0; ++text) {
    if (*text >= 0x80) return false;
  }
  return true;
}

OpensslKey PublicKeyOf(const CertInfo& certificate) {
  const unsigned char* next = certificate.value;
  const std::unique_ptr<X509, decltype(&X509_free)> read(
      d2i_X509(nullptr, &next, static_cast<long>(certificate.value_len)), &X509_free);
  return OpensslKey(read != nullptr ? X509_get_pubkey(read.get()) : nullptr, &EVP_PKEY_free);
}

}  // namespace

// The flags keep the value of the key before where a read fails, as they do in the extension.
struct Road::Usage {
  CK_BBOOL verify = CK_FALSE;
  CK_BBOOL encrypt = CK_FALSE;
  CK_BBOOL wrap = CK_FALSE;
  CK_BBOOL derive = CK_FALSE;

  std::string Text() const {
    std::string text = verify == CK_TRUE ? "signs" : "";
    if (encrypt == CK_TRUE || wrap == CK_TRUE) text += " decrypts";
    if (derive == CK_TRUE) text += " agrees";
    return text;
  }
};

Road::~Road() {
  if (p11_ != nullptr) p11_->C_Finalize(nullptr);
  if (module_ != nullptr) C_UnloadModule(module_);
}

std::vector<std::string> Road::Walk() {
  if (!SetUp()) return failures_;
  AskForSupport();
  if (!LogIn()) return failures_;
  Sign();
  Decrypt();
  Agree();
  ReadWhatCannotBeRead();
  FailAndGoOn();
  return failures_;
}

void Road::Note(const std::string& step, const std::string& what) {
  failures_.push_back(step + ": " + what);
}

bool Road::Succeeded(const std::string& step, CK_RV result) {
  if (result != CKR_OK) Note(step, CKR2Str(result));
  return result == CKR_OK;
}

bool Road::SetUp() {
  // No slot has this name, which leaves the last one.
  const CK_RV result =
      init(path_.c_str(), &module_, &p11_, &slot_, &session_, "Reader of the settings");
  if (result >= INIT_ERR_MODULE && result <= INIT_ERR_READER_NAME) {
    Note("bring-up", result == INIT_ERR_SESSION ? "no session" : "no slot");
    return false;
  }
  if (!Succeeded("bring-up", result)) return false;
  std::array<char, kCardNumberSize> number = {};
  if (Succeeded("card number", get_card_no(p11_, slot_, number.data())) &&
      number.data() != std::string("4711")) {
    Note("card number", "'" + std::string(number.data()) + "'");
  }
  std::array<char, kSlotDescriptionSize> description = {};
  if (Succeeded("description", get_reader_name(p11_, slot_, description.data())) &&
      std::find(description.begin(), description.end(), 0) != description.end()) {
    Note("description", "has NUL bytes");
  }

  CK_OBJECT_CLASS wanted = CKO_CERTIFICATE;
  CK_ATTRIBUTE attribute = {CKA_CLASS, &wanted, sizeof(wanted)};
  if (!Succeeded("certificates", p11_->C_FindObjectsInit(session_, &attribute, 1))) return false;
  std::array<CK_OBJECT_HANDLE, kMostCertificates> found = {};
  CK_ULONG count = found.size();
  const CK_RV read = p11_->C_FindObjects(session_, found.data(), found.size(), &count);
  if (!Succeeded("certificates", read)) return false;
  Usage usage;
  std::string listed;
  for (CK_ULONG i = 0; i < count; ++i) {
    if (!ReadCertificate(found[i], &usage, &listed)) return false;
  }
  if (listed != kContents) Note("listed", listed);
  // What is not listed is never asked for.
  return listed.find(Hex(kRsaId)) != std::string::npos &&
         listed.find(Hex(kEcId)) != std::string::npos;
}

// False when the set-up ends here.
bool Road::ReadCertificate(CK_OBJECT_HANDLE certificate, Usage* usage, std::string* listed) {
  CertInfo info;
  if (!Succeeded("certificate", get_cert_info(p11_, session_, certificate, &info))) return false;
  const CK_BYTE id = info.id[0];
  public_keys_.insert_or_assign(id, PublicKeyOf(info));
  if (!IsAscii(info.label)) return true;
  *listed += (listed->empty() ? "" : " ") + Hex(id);
  CK_OBJECT_HANDLE key = CK_INVALID_HANDLE;
  const CK_RV found = get_pub_key(p11_, session_, info.id, info.id_len, &key);
  if (!Succeeded("public key " + Hex(id), found)) return false;
  std::array<char, kLabelSize> label = {};
  get_label(p11_, session_, key, label.data());
  if (!IsAscii(reinterpret_cast<const unsigned char*>(label.data()))) {
    Note("public key " + Hex(id), "its label is not ASCII");
  }
  is_attr_supported(p11_, session_, key, CKA_VERIFY, &usage->verify);
  is_attr_supported(p11_, session_, key, CKA_ENCRYPT, &usage->encrypt);
  is_attr_supported(p11_, session_, key, CKA_WRAP, &usage->wrap);
  is_attr_supported(p11_, session_, key, CKA_DERIVE, &usage->derive);
  const bool is_wrong = (id == kRsaId && usage->Text() != "signs decrypts") ||
                        (id == kEcId && usage->Text() != "signs agrees");
  if (is_wrong) Note("usage of " + Hex(id), "'" + usage->Text() + "'");
  return true;
}

void Road::AskForSupport() {
  AskForSupport(kRsaId, CKA_VERIFY, CKM_RSA_X_509, "CKM_RSA_X_509");
  AskForSupport(kRsaId, CKA_ENCRYPT, CKM_RSA_PKCS, "CKM_RSA_PKCS");
  AskForSupport(kEcId, CKA_VERIFY, CKM_ECDSA, "CKM_ECDSA");
  AskForSupport(kEcId, CKA_VERIFY, CKM_ECDSA_SHA1, "CKM_ECDSA_SHA1");
}

void Road::AskForSupport(CK_BYTE id, CK_ATTRIBUTE_TYPE usage, CK_MECHANISM_TYPE mechanism,
                         const char* name) {
  const std::string step = std::string("support of ") + name;
  CK_OBJECT_HANDLE key = CK_INVALID_HANDLE;
  if (!Succeeded(step, get_pub_key(p11_, session_, &id, 1, &key))) return;
  CK_BBOOL flag = CK_FALSE;
  is_attr_supported(p11_, session_, key, usage, &flag);
  std::array<CK_MECHANISM_TYPE, kMostMechanisms> list = {};
  CK_ULONG count = list.size();
  const CK_RV result = get_mechanism_list(p11_, session_, key, list.data(), &count);
  if (flag != CK_TRUE) {
    Note(step, "no");
  } else if (Succeeded(step, result)) {
    const auto end = list.begin() + static_cast<std::ptrdiff_t>(count);
    if (std::find(list.begin(), end, mechanism) == end) Note(step, "no");
  }
}

bool Road::LogIn() {
  CK_OBJECT_HANDLE key = CK_INVALID_HANDLE;
  const CK_RV early = FindPrivateKey(kRsaId, &key);
  if (early == CKR_OK) Note("login", "is not needed");
  std::string pin(kPin);
  const CK_RV result =
      p11_->C_Login(session_, CKU_USER, reinterpret_cast<CK_BYTE*>(pin.data()), pin.size());
  return Succeeded("login", result);
}

CK_RV Road::FindPrivateKey(CK_BYTE id, CK_OBJECT_HANDLE* key) {
  CK_BBOOL needs_login = CK_TRUE;
  CK_RV result = login_required(p11_, session_, &needs_login);
  if (result != CKR_OK) return result;
  if (needs_login == CK_TRUE) return CKR_USER_NOT_LOGGED_IN;
  result = get_priv_key(p11_, session_, &id, 1, key);
  if (result != CKR_OK) return result;
  return *key == CK_INVALID_HANDLE ? CKR_KEY_HANDLE_INVALID : CKR_OK;
}

}  // namespace kelvrin::adapter
