#include "modulecheck/rehearsal.h"

#include <algorithm>
#include <cstring>
#include <span>

#include "p11/bringup.h"
#include "p11/lookup.h"
#include "modulecheck/der.h"
#include "modulecheck/text.h"

namespace kelvrin::modulecheck {
namespace {

constexpr CK_ULONG kMaxCertificates = 20;
// The kinds of items, as an object ID begins with them.
constexpr CK_BYTE kCertificate = 1;
constexpr CK_BYTE kKey = 2;

std::string ObjectId(CK_BYTE kind, std::span<const CK_BYTE> id) {
  return Hex({&kind, 1}) + Hex(id);
}

bool IsAscii(const char* text) {
  return modulecheck::IsAscii({reinterpret_cast<const CK_BYTE*>(text), std::strlen(text)});
}

// Goes through the set-up once.
class SetUp {
 public:
  explicit SetUp(const Module& module)
      : module_(module), session_(module), p11_(module.p11()), handle_(session_.handle()) {}

  Rehearsal Run() {
    if (!BeginsAtAll()) return rehearsal_;
    CK_OBJECT_HANDLE certificates[kMaxCertificates] = {};
    CK_ULONG count = kMaxCertificates;
    if (!FindCertificates(certificates, &count)) return rehearsal_;
    for (CK_ULONG i = 0; i < std::min(count, kMaxCertificates); ++i) {
      if (!AddCertificate(certificates[i])) break;
    }
    return rehearsal_;
  }

 private:
  bool End(const char* call, CK_RV result, const std::string& what) {
    rehearsal_.failed_call = call;
    rehearsal_.result = result;
    rehearsal_.publication.ended = what;
    rehearsal_.publication.items.clear();
    return false;
  }

  // Whether the bring-up gave the set-up a session. Otherwise the session here is another one.
  bool BeginsAtAll() {
    switch (module_.bring_up_result()) {
      case CKR_OK:
        return true;
      case INIT_ERR_SESSION:
        return End("C_OpenSession", module_.open_result(), "opening a session");
      case INIT_ERR_READER_NAME:
        return End("", CKR_OK, "there are several slots and no reader name is configured");
      default:
        return End("", CKR_OK, "the module is not brought up");
    }
  }

  bool FindCertificates(CK_OBJECT_HANDLE* certificates, CK_ULONG* count) {
    const std::string what = "the search for certificates";
    CK_OBJECT_CLASS object_class = CKO_CERTIFICATE;
    CK_ATTRIBUTE wanted = {CKA_CLASS, &object_class, sizeof(object_class)};
    CK_RV result = p11_->C_FindObjectsInit(handle_, &wanted, 1);
    if (result != CKR_OK) return End("C_FindObjectsInit", result, what);
    result = p11_->C_FindObjects(handle_, certificates, kMaxCertificates, count);
    return result == CKR_OK || End("C_FindObjects", result, what);
  }

  bool AddCertificate(CK_OBJECT_HANDLE certificate) {
    CertInfo info;
    CK_RV result = get_cert_info(p11_, handle_, certificate, &info);
    if (result != CKR_OK) {
      return End("C_GetAttributeValue", result, "reading certificate number " + Number());
    }
    ++read_;
    // A label without an end runs on, as long as it likes; here it ends with its field.
    char label[kCertFieldSize + 1] = {};
    std::memcpy(label, info.label, kCertFieldSize);
    const std::span<const CK_BYTE> id(info.id, std::min(info.id_len, kCertFieldSize));
    const std::string name = "certificate \"" + Printable(label) + "\"";
    if (!IsSequence({info.value, std::min(info.value_len, kCertValueSize)})) {
      rehearsal_.publication.dropped.push_back(name + ": its value is no certificate");
      return true;
    }
    if (!IsAscii(label)) {
      rehearsal_.publication.dropped.push_back(name + ": its label is not ASCII");
      return true;
    }
    Add("certificate", Printable(label), ObjectId(kCertificate, id));
    return AddKey(name, id);
  }

  bool AddKey(const std::string& certificate, std::span<const CK_BYTE> id) {
    CK_OBJECT_HANDLE key = CK_INVALID_HANDLE;
    CK_RV result = get_pub_key(p11_, handle_, id.data(), id.size(), &key);
    if (result != CKR_OK) {
      return End("C_FindObjectsInit", result, "the search for the public key of " + certificate);
    }
    char label[kLabelSize] = {};
    get_label(p11_, handle_, key, label);
    if (!IsAscii(label)) {
      rehearsal_.publication.dropped.push_back("the key of " + certificate +
                                               ": its label is not ASCII");
      return true;
    }
    Add("key", Printable(label), ObjectId(kKey, id));
    std::vector<std::string>& capabilities = rehearsal_.publication.items.back().capabilities;
    // A flag that cannot be read keeps what the previous key said.
    is_attr_supported(p11_, handle_, key, CKA_VERIFY, &verify_);
    is_attr_supported(p11_, handle_, key, CKA_ENCRYPT, &encrypt_);
    is_attr_supported(p11_, handle_, key, CKA_WRAP, &wrap_);
    is_attr_supported(p11_, handle_, key, CKA_DERIVE, &derive_);
    if (verify_ == CK_TRUE) capabilities.emplace_back("sign");
    if (encrypt_ == CK_TRUE || wrap_ == CK_TRUE) capabilities.emplace_back("decrypt");
    if (derive_ == CK_TRUE) capabilities.emplace_back("key-exchange");
    return true;
  }

  void Add(const char* kind, const std::string& name, const std::string& object_id) {
    rehearsal_.publication.items.push_back({kind, name, object_id, {}});
  }
  std::string Number() const { return std::to_string(read_ + 1); }

  const Module& module_;
  ProbeSession session_;
  CK_FUNCTION_LIST* p11_;
  CK_SESSION_HANDLE handle_;
  Rehearsal rehearsal_;
  std::size_t read_ = 0;
  CK_BBOOL verify_ = CK_FALSE;
  CK_BBOOL encrypt_ = CK_FALSE;
  CK_BBOOL wrap_ = CK_FALSE;
  CK_BBOOL derive_ = CK_FALSE;
};

}  // namespace

Rehearsal RehearseSetUp(const Module& module) { return SetUp(module).Run(); }

}  // namespace kelvrin::modulecheck
