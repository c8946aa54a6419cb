// The token's set-up, call by call, with the extension's own functions.

#include <algorithm>
#include <cstring>
#include <nlohmann/json.hpp>

#include "modulecheck/listing.h"
#include "p11/bringup.h"
#include "p11/lookup.h"

namespace kelvrin::modulecheck {
namespace {

using nlohmann::json;

constexpr CK_ULONG kMaxCertificates = 20;
// The kinds of items, as an object ID begins with them.
constexpr CK_BYTE kCertificate = 1;
constexpr CK_BYTE kKey = 2;

// Goes through the set-up once. Each step returns nothing, or why the set-up ends there.
class SetUp {
 public:
  using Ending = std::optional<Judgement>;

  SetUp(const Module& module, json* published)
      : module_(module), published_(*published), session_(module), p11_(module.p11()) {
    published_ = {{"items", json::array()}, {"dropped", json::array()}, {"ended", ""}};
  }

  Judgement Run() {
    if (const Ending ending = Publish()) {
      published_["items"].clear();
      published_["ended"] = Seen(*ending);
      return *ending;
    }
    const json& items = published_["items"];
    const auto keys = static_cast<std::size_t>(
        std::ranges::count_if(items, [](const json& item) { return item.at("kind") == "key"; }));
    if (keys == 0) return Unmet("no key would be published");
    return Met(Counted(items.size() - keys, "certificate") + " and " + Counted(keys, "key") +
               " would be published");
  }

 private:
  Ending Publish() {
    switch (module_.bring_up_result()) {
      case CKR_OK:
        break;
      case INIT_ERR_SESSION:
        return Unmet("C_OpenSession", module_.open_result());
      case INIT_ERR_READER_NAME:
        return Unmet("there are several slots and no reader name is configured");
      default:
        return Unmet("the module is not brought up");
    }
    CK_OBJECT_CLASS object_class = CKO_CERTIFICATE;
    CK_ATTRIBUTE wanted = {CKA_CLASS, &object_class, sizeof(object_class)};
    CK_OBJECT_HANDLE certificates[kMaxCertificates] = {};
    CK_ULONG count = 0;
    CK_RV result = p11_->C_FindObjectsInit(session_.handle(), &wanted, 1);
    if (result != CKR_OK) return Unmet("C_FindObjectsInit", result, "of the certificates");
    result = p11_->C_FindObjects(session_.handle(), certificates, kMaxCertificates, &count);
    if (result != CKR_OK) return Unmet("C_FindObjects", result, "of the certificates");
    for (CK_ULONG i = 0; i < std::min(count, kMaxCertificates); ++i) {
      if (Ending ending = AddCertificate(certificates[i])) return ending;
    }
    return {};
  }

  Ending AddCertificate(CK_OBJECT_HANDLE certificate) {
    CertInfo info;
    const CK_RV result = get_cert_info(p11_, session_.handle(), certificate, &info);
    if (result != CKR_OK) return Unmet("C_GetAttributeValue", result, "of a certificate");
    // A label without an end runs on, as long as it likes; here it ends with its field.
    const std::string label(reinterpret_cast<const char*>(info.label),
                            strnlen(reinterpret_cast<const char*>(info.label), kCertFieldSize));
    const ByteView id(info.id, std::min(info.id_len, kCertFieldSize));
    const std::string name = "certificate " + Quoted(label);
    if (!encoding::ReadCertificate({info.value, std::min(info.value_len, kCertValueSize)})) {
      Drop(name + ": its value is no certificate");
    } else if (!IsAscii(AsBytes(label))) {
      Drop(name + ": its label is not ASCII");
    } else {
      Add("certificate", label, kCertificate, id);
      return AddKey(name, id);
    }
    return {};
  }

  Ending AddKey(const std::string& certificate, ByteView id) {
    CK_OBJECT_HANDLE key = CK_INVALID_HANDLE;
    const CK_RV result = get_pub_key(p11_, session_.handle(), id.data(), id.size(), &key);
    if (result != CKR_OK) {
      return Unmet("C_FindObjectsInit", result, "of the public key of " + certificate);
    }
    char label[kLabelSize] = {};
    get_label(p11_, session_.handle(), key, label);
    if (!IsAscii(AsBytes(label))) {
      Drop("the key of " + certificate + ": its label is not ASCII");
      return {};
    }
    Add("key", label, kKey, id);
    // A flag that cannot be read keeps what the previous key said.
    is_attr_supported(p11_, session_.handle(), key, CKA_VERIFY, &verify_);
    is_attr_supported(p11_, session_.handle(), key, CKA_ENCRYPT, &encrypt_);
    is_attr_supported(p11_, session_.handle(), key, CKA_WRAP, &wrap_);
    is_attr_supported(p11_, session_.handle(), key, CKA_DERIVE, &derive_);
    json& capabilities = published_["items"].back()["capabilities"];
    if (verify_ == CK_TRUE) capabilities.push_back("sign");
    if (encrypt_ == CK_TRUE || wrap_ == CK_TRUE) capabilities.push_back("decrypt");
    if (derive_ == CK_TRUE) capabilities.push_back("key-exchange");
    return {};
  }

  static ByteView AsBytes(std::string_view text) {
    return {reinterpret_cast<const CK_BYTE*>(text.data()), text.size()};
  }

  void Add(const char* kind, std::string_view name, CK_BYTE prefix, ByteView id) {
    published_["items"].push_back({{"kind", kind},
                                   {"name", Printable(name)},
                                   {"objectId", Hex({&prefix, 1}) + Hex(id)},
                                   {"capabilities", json::array()}});
  }
  void Drop(const std::string& what) { published_["dropped"].push_back(what); }

  const Module& module_;
  json& published_;
  Session session_;
  CK_FUNCTION_LIST* p11_;
  CK_BBOOL verify_ = CK_FALSE;
  CK_BBOOL encrypt_ = CK_FALSE;
  CK_BBOOL wrap_ = CK_FALSE;
  CK_BBOOL derive_ = CK_FALSE;
};

}  // namespace

Judgement GoThroughSetUp(const Module& module, json* published) {
  return SetUp(module, published).Run();
}

}  // namespace kelvrin::modulecheck
