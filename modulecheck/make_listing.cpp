#include "modulecheck/make_listing.h"

#include <algorithm>

#include "p11/bringup.h"
#include "p11/lookup.h"
#include "modulecheck/objects.h"
#include "modulecheck/rehearsal.h"

namespace kelvrin::modulecheck {
namespace {

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

std::string Text(const Bytes& bytes) {
  return Printable({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

std::span<const CK_BYTE> AsBytes(const std::string& text) {
  return {reinterpret_cast<const CK_BYTE*>(text.data()), text.size()};
}

std::string ReaderName(const SlotFacts& slot) {
  return std::string(Field(AsBytes(slot.description)));
}

void ListSlots(const Module& module, Listing* listing) {
  std::vector<std::string> descriptions;
  for (const SlotFacts& slot : module.slots()) descriptions.push_back(slot.description);
  for (const SlotFacts& slot : module.slots()) {
    SlotListing line;
    const std::string name = ReaderName(slot);
    line.reader_name = Printable(name);
    line.has_token = slot.token_result == CKR_OK;
    line.initialised = slot.is_initialised();
    line.label = Printable(Field(slot.token.label));
    line.serial = Printable(Field(slot.token.serialNumber));
    const SlotChoice choice = ChooseSlot(descriptions, name);
    if (choice.choice == Choice::kMatch) line.leads_to = choice.index + 1;
    listing->slots.push_back(line);
  }
}

void ListChoice(const Module& module, Listing* listing) {
  const SlotChoice choice = module.choice();
  const std::string name = "\"" + Printable(module.reader_name()) + "\"";
  listing->picked = choice.index + 1;
  listing->is_fallback = choice.choice == Choice::kFallback;
  switch (choice.choice) {
    case Choice::kNoSlot:
      listing->picked = 0;
      listing->why =
          module.is_initialised() ? "the module has no slot" : "the module is not initialised";
      break;
    case Choice::kOnlySlot:
      listing->why = "it is the only one, and no reader name is configured";
      break;
    case Choice::kMatch:
      listing->why = "its description is the first that contains " + name;
      break;
    case Choice::kFallback:
      listing->why = "no description contains " + name +
                     ", and then the extension takes the last slot without a word";
      break;
    case Choice::kRefused:
      listing->picked = 0;
      listing->why = "there are several slots and no reader name is configured";
      break;
  }
}

PublicKeyListing Describe(const Module& module, CK_SESSION_HANDLE session, const Key& key) {
  PublicKeyListing line = {Text(key.label), Hex(key.id), TypeText(key), {}, {}, {}, ""};
  for (const Usage& usage : kPublicUsages) {
    CK_BBOOL flag = CK_FALSE;
    if (is_attr_supported(module.p11(), session, key.handle, usage.type, &flag) != CKR_OK) {
      line.unreadable.emplace_back(usage.name);
    } else if (flag == CK_TRUE) {
      line.usage.emplace_back(usage.name);
    }
  }
  std::vector<CK_MECHANISM_TYPE> mechanisms(kMaxMechanisms);
  CK_ULONG count = mechanisms.size();
  const CK_RV result =
      get_mechanism_list(module.p11(), session, key.handle, mechanisms.data(), &count);
  if (result != CKR_OK) {
    line.mechanisms_result = ResultText(result);
    count = 0;
  }
  mechanisms.resize(std::min<std::size_t>(count, mechanisms.size()));
  for (const CK_MECHANISM_TYPE type : mechanisms) line.mechanisms.push_back(MechanismText(type));
  return line;
}

// The public keys: those that the module lists, and those that it finds only by their CKA_ID.
std::vector<Key> PublicKeys(const Module& module, CK_SESSION_HANDLE session,
                            const std::vector<Certificate>& certificates) {
  std::vector<Key> keys = ReadKeys(module, session, CKO_PUBLIC_KEY);
  for (const Certificate& certificate : certificates) {
    for (const Key& key : ReadKeysById(module, session, CKO_PUBLIC_KEY, certificate.id)) {
      if (std::none_of(keys.begin(), keys.end(),
                       [&](const Key& known) { return known.handle == key.handle; })) {
        keys.push_back(key);
      }
    }
  }
  return keys;
}

void ListObjects(const Module& module, Listing* listing) {
  const ProbeSession session(module);
  const std::vector<Certificate> certificates = ReadCertificates(module, session.handle());
  for (const Certificate& certificate : certificates) {
    listing->certificates.push_back(
        {Text(certificate.label), Hex(certificate.id), certificate.der.size()});
  }
  for (const Key& key : PublicKeys(module, session.handle(), certificates)) {
    listing->public_keys.push_back(Describe(module, session.handle(), key));
  }
  listing->private_keys = ListPrivateKeys(module);
}

}  // namespace

Listing MakeListing(const Module& module) {
  Listing listing;
  ListSlots(module, &listing);
  ListChoice(module, &listing);
  if (module.judged() == 0) return listing;
  listing.judged = module.judged();
  char number[kCardNumberSize] = {};
  if (get_card_no(module.p11(), module.slot(), number) == CKR_OK) {
    listing.card_number = Printable(number);
  }
  for (const CK_MECHANISM_TYPE type : SlotMechanisms(module)) {
    listing.slot_mechanisms.push_back(MechanismText(type));
  }
  try {
    ListObjects(module, &listing);
  } catch (const CallFailed& failed) {
    listing.incomplete = failed.call + " gave " + ResultText(failed.result);
  }
  const Rehearsal rehearsal = RehearseSetUp(module);
  listing.publication = rehearsal.publication;
  if (!rehearsal.failed_call.empty()) {
    listing.publication.ended +=
        " fails: " + rehearsal.failed_call + " gave " + ResultText(rehearsal.result);
  }
  return listing;
}

std::vector<PrivateKeyListing> ListPrivateKeys(const Module& module) {
  std::vector<PrivateKeyListing> lines;
  const ProbeSession session(module);
  for (const Key& key : ReadKeys(module, session.handle(), CKO_PRIVATE_KEY)) {
    PrivateKeyListing line = {Text(key.label), Hex(key.id), TypeText(key), {}, false};
    for (const Usage& usage : kPrivateUsages) {
      if (ReadFlag(module, session.handle(), key.handle, usage.type)) {
        line.usage.emplace_back(usage.name);
      }
    }
    line.always_authenticate =
        ReadFlag(module, session.handle(), key.handle, CKA_ALWAYS_AUTHENTICATE);
    lines.push_back(line);
  }
  return lines;
}

}  // namespace kelvrin::modulecheck
