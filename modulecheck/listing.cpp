#include "modulecheck/listing.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "p11/bringup.h"
#include "p11/lookup.h"

namespace kelvrin::modulecheck {
namespace {

using nlohmann::json;

// As many as the extension can read at all.
constexpr CK_ULONG kMaxMechanisms = 128;

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

// Why the adapter shows no such certificate.
const char* ReasonToLeaveOut(const json& certificate) {
  constexpr std::size_t kMaxId = 255;
  if (certificate.at("id").get<std::string>().size() > 2 * kMaxId) {
    return "its CKA_ID has more than 255 bytes";
  }
  if (certificate.at("size") > kCertValueSize) return "it has more than 4096 bytes";
  if (!certificate.at("parseable").get<bool>()) return "its value is no certificate";
  return "it has no key, as a CA's";
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

void ListCard(const Module& module, const Contents& contents, json* listing,
              std::vector<std::string>* warnings) {
  json& target = *listing;
  char number[kCardNumberSize] = {};
  get_card_no(module.p11(), module.slot().id, number);
  target["cardNumber"] = Printable(number);
  target["mechanisms"] = json::array();
  for (const CK_MECHANISM_TYPE type : SlotMechanisms(module)) {
    if (IsAskedFor(type)) target["mechanisms"].push_back(MechanismText(type));
  }
  target["certificates"] = json::array();
  for (const Certificate& certificate : contents.certificates) {
    target["certificates"].push_back({{"label", Text(certificate.label)},
                                      {"id", Hex(certificate.id)},
                                      {"size", certificate.der.size()},
                                      {"parseable", certificate.facts.has_value()}});
  }
  target["publicKeys"] = json::array();
  for (const Key& key : contents.public_keys) {
    target["publicKeys"].push_back(DescribePublic(contents.session, key, warnings));
  }
  target["privateKeys"] = ListPrivateKeys(contents);
}

json ListPrivateKeys(const Contents& contents) {
  json lines = json::array();
  for (const Key& key : contents.private_keys) {
    json line = Describe(contents.session, key, kPrivateUsages);
    line["alwaysAuthenticate"] = ReadFlag(contents.session, key.handle, CKA_ALWAYS_AUTHENTICATE);
    lines.push_back(line);
  }
  return lines;
}

json LeftOut(const json& alone, const json& behind) {
  json left_out = json::array();
  if (!alone.contains("certificates") || !behind.contains("certificates")) return left_out;
  json shown = behind.at("certificates");
  for (const json& certificate : alone.at("certificates")) {
    // The adapter may change the label.
    const auto found = std::find_if(shown.begin(), shown.end(), [&](const json& one) {
      return one.at("id") == certificate.at("id") && one.at("size") == certificate.at("size");
    });
    if (found != shown.end()) {
      shown.erase(found);
      continue;
    }
    left_out.push_back({{"label", certificate.at("label")},
                        {"id", certificate.at("id")},
                        {"reason", ReasonToLeaveOut(certificate)}});
  }
  return left_out;
}

}  // namespace kelvrin::modulecheck
