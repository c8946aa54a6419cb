#include "modulecheck/listing.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "modulecheck/objects.h"
#include "p11/bringup.h"
#include "p11/lookup.h"

namespace kelvrin::modulecheck {
namespace {

using nlohmann::json;

// As many as the extension can read at all.
constexpr CK_ULONG kMaxMechanisms = 128;

struct Usage {
  CK_ATTRIBUTE_TYPE type;
  const char* name;
};
constexpr Usage kPublicUsages[] = {
    {CKA_VERIFY, "VERIFY"}, {CKA_ENCRYPT, "ENCRYPT"}, {CKA_WRAP, "WRAP"}, {CKA_DERIVE, "DERIVE"}};
constexpr Usage kPrivateUsages[] = {
    {CKA_SIGN, "SIGN"}, {CKA_DECRYPT, "DECRYPT"}, {CKA_DERIVE, "DERIVE"}};

// Those that the extension asks for.
constexpr CK_MECHANISM_TYPE kAskedFor[] = {CKM_RSA_X_509, CKM_RSA_PKCS, CKM_ECDSA, CKM_ECDSA_SHA1,
                                           CKM_ECDH1_DERIVE};

bool IsAskedFor(CK_MECHANISM_TYPE mechanism) {
  return std::ranges::find(kAskedFor, mechanism) != std::end(kAskedFor);
}

std::string Why(const Module& module) {
  const std::string name = Quoted(module.reader_name());
  switch (module.choice().choice) {
    case Choice::kNoSlot:
      return module.is_initialised() ? "the module shows no slot" : "the module is not initialised";
    case Choice::kOnlySlot:
      return "it is the only one, and no reader name is configured";
    case Choice::kMatch:
      return "its description is the first that contains " + name;
    case Choice::kFallback:
      return "no description contains " + name +
             ", and then the extension takes the last slot without a word";
    case Choice::kRefused:
      break;
  }
  return "there are several slots and no reader name is configured";
}

json Describe(const Session& session, const Key& key, std::span<const Usage> usages) {
  json usage = json::array();
  for (const Usage& one : usages) {
    if (ReadFlag(session, key.handle, one.type)) usage.push_back(one.name);
  }
  return {
      {"label", Text(key.label)}, {"id", Hex(key.id)}, {"type", key.type_text}, {"usage", usage}};
}

json DescribePublic(const Session& session, const Key& key, std::vector<std::string>* warnings) {
  json line = Describe(session, key, kPublicUsages);
  std::vector<CK_MECHANISM_TYPE> list(kMaxMechanisms);
  CK_ULONG count = list.size();
  const CK_RV result =
      get_mechanism_list(session.p11(), session.handle(), key.handle, list.data(), &count);
  list.resize(result == CKR_OK ? std::min<std::size_t>(count, list.size()) : 0);
  std::vector<std::string> names;
  names.reserve(list.size());
  for (const CK_MECHANISM_TYPE mechanism : list) names.push_back(MechanismText(mechanism));
  line["allowedMechanisms"] = names;
  line["allowedMechanismsResult"] = result == CKR_OK ? "" : ResultText(result);
  if (!list.empty() && std::ranges::none_of(list, IsAskedFor)) {
    warnings->push_back("the key " + NameOf(key) + " allows only " + Join(names, ", ") +
                        ", which the extension never asks for: it cannot be used");
  }
  return line;
}

// The public keys: those that the module lists, and those that it finds only by their CKA_ID.
std::vector<Key> AllPublicKeys(const Session& session) {
  std::vector<Key> keys = ReadKeys(session, FindClass(session, CKO_PUBLIC_KEY));
  for (Key& key : PublicKeys(session)) {
    const bool is_known =
        std::ranges::any_of(keys, [&](const Key& known) { return known.handle == key.handle; });
    if (!is_known) keys.push_back(std::move(key));
  }
  return keys;
}

}  // namespace

json ListSlots(const Module& module) {
  std::vector<std::string> descriptions;
  for (const SlotFacts& slot : module.slots()) descriptions.push_back(slot.description);
  json slots = json::array();
  for (const SlotFacts& slot : module.slots()) {
    const std::string_view raw = slot.description;
    const std::string_view name = Field({reinterpret_cast<const CK_BYTE*>(raw.data()), raw.size()});
    const SlotChoice choice = ChooseSlot(descriptions, name);
    slots.push_back(
        {{"readerName", slot.reader_name()},
         {"hasCard", slot.has_card()},
         {"label", slot.label()},
         {"serial", slot.serial()},
         {"readerNameLeadsTo", choice.choice == Choice::kMatch ? choice.index + 1 : 0}});
  }
  const Choice choice = module.choice().choice;
  const bool picks = choice != Choice::kNoSlot && choice != Choice::kRefused;
  return {{"slots", slots},
          {"picked", picks ? module.choice().index + 1 : 0},
          {"why", Why(module)},
          {"fallback", choice == Choice::kFallback},
          {"judged", module.judged()}};
}

void ListCard(const Module& module, json* listing, std::vector<std::string>* warnings) {
  json& target = *listing;
  char number[kCardNumberSize] = {};
  get_card_no(module.p11(), module.slot().id, number);
  target["cardNumber"] = Printable(number);
  target["mechanisms"] = json::array();
  for (const CK_MECHANISM_TYPE type : SlotMechanisms(module)) {
    if (IsAskedFor(type)) target["mechanisms"].push_back(MechanismText(type));
  }
  const Session session(module);
  target["certificates"] = json::array();
  for (const Certificate& certificate : ReadCertificates(session)) {
    target["certificates"].push_back(
        {{"label", Text(certificate.label)},
         {"id", Hex(certificate.id)},
         {"size", certificate.der.size()},
         {"parseable", encoding::ReadCertificate(certificate.der).has_value()}});
  }
  target["publicKeys"] = json::array();
  for (const Key& key : AllPublicKeys(session)) {
    target["publicKeys"].push_back(DescribePublic(session, key, warnings));
  }
  target["privateKeys"] = ListPrivateKeys(module);
}

json ListPrivateKeys(const Module& module) {
  const Session session(module);
  json lines = json::array();
  for (const Key& key : ReadKeys(session, FindClass(session, CKO_PRIVATE_KEY))) {
    json line = Describe(session, key, kPrivateUsages);
    line["alwaysAuthenticate"] = ReadFlag(session, key.handle, CKA_ALWAYS_AUTHENTICATE);
    lines.push_back(line);
  }
  return lines;
}

}  // namespace kelvrin::modulecheck
