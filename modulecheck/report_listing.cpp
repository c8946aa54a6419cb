#include "modulecheck/report_listing.h"

#include <algorithm>

#include "modulecheck/text.h"

namespace kelvrin::modulecheck {
namespace {

std::string Quoted(const std::string& text) { return "\"" + text + "\""; }

std::string Numbered(std::size_t number) { return "  " + std::to_string(number) + ". "; }

std::string IdText(const std::string& id) { return id.empty() ? "empty" : id; }

// The elements, or a word for their absence.
std::string ListOr(const std::vector<std::string>& elements, const char* none) {
  return elements.empty() ? none : Join(elements, " ");
}

std::string SlotText(const SlotListing& slot, std::size_t number) {
  std::string text = Numbered(number) + "readerName " + Quoted(slot.reader_name);
  if (!slot.has_token) {
    text += ", no token";
  } else if (!slot.initialised) {
    text += ", a token that is not initialised";
  } else {
    text += ", token " + Quoted(slot.label) + ", serial number " + Quoted(slot.serial);
  }
  text += '\n';
  const std::string xml = Xml(slot.reader_name);
  if (xml != slot.reader_name) text += "     in config.plist <string>" + xml + "</string>\n";
  if (slot.leads_to != 0 && slot.leads_to != number) {
    text += "     this name would lead to slot " + std::to_string(slot.leads_to) + "\n";
  }
  return text;
}

std::string SlotsText(const Listing& listing) {
  std::string text = "Slots\n";
  for (std::size_t i = 0; i < listing.slots.size(); ++i) {
    text += SlotText(listing.slots[i], i + 1);
  }
  if (listing.picked == 0) {
    text += "  The extension picks none: " + listing.why + ".\n";
  } else {
    text +=
        "  The extension picks slot " + std::to_string(listing.picked) + ": " + listing.why + ".\n";
  }
  if (listing.judged != 0 && listing.judged != listing.picked) {
    text += "  What follows is of slot " + std::to_string(listing.judged) +
            ", the first with an initialised token.\n";
  }
  return text;
}

std::string CertificatesText(const Listing& listing) {
  std::string text = "Certificates\n";
  if (listing.certificates.empty()) text += "  none\n";
  for (std::size_t i = 0; i < listing.certificates.size(); ++i) {
    const CertificateListing& certificate = listing.certificates[i];
    text += Numbered(i + 1) + Quoted(certificate.label) + ", CKA_ID " + IdText(certificate.id) +
            ", " + Counted(certificate.size, "byte") + "\n";
  }
  return text;
}

std::string MechanismsText(const PublicKeyListing& key) {
  if (!key.mechanisms_result.empty()) return "cannot be read: " + key.mechanisms_result;
  return ListOr(key.mechanisms, "none");
}

std::string KeysText(const Report& report) {
  const Listing& listing = report.listing;
  std::string text = "Public keys\n";
  if (listing.public_keys.empty()) text += "  none\n";
  for (std::size_t i = 0; i < listing.public_keys.size(); ++i) {
    const PublicKeyListing& key = listing.public_keys[i];
    text +=
        Numbered(i + 1) + Quoted(key.label) + ", CKA_ID " + IdText(key.id) + ", " + key.type + "\n";
    text += "     usage: " + ListOr(key.usage, "none") + "\n";
    if (!key.unreadable.empty()) text += "     not told: " + Join(key.unreadable, " ") + "\n";
    text += "     allowed mechanisms: " + MechanismsText(key) + "\n";
  }
  const auto& shown = report.private_keys.empty() ? listing.private_keys : report.private_keys;
  text += "Private keys\n";
  if (shown.empty()) text += "  none that show without a login\n";
  for (std::size_t i = 0; i < shown.size(); ++i) {
    const PrivateKeyListing& key = shown[i];
    text +=
        Numbered(i + 1) + Quoted(key.label) + ", CKA_ID " + IdText(key.id) + ", " + key.type + "\n";
    text += "     usage: " + ListOr(key.usage, "none");
    text += key.always_authenticate ? ", wants a login for each operation\n" : "\n";
  }
  return text;
}

// Those that the extension asks for; slots offer dozens of others.
std::string UsefulMechanisms(const Listing& listing) {
  std::vector<std::string> useful;
  for (const CK_MECHANISM_TYPE mechanism :
       {CKM_RSA_X_509, CKM_RSA_PKCS, CKM_ECDSA, CKM_ECDSA_SHA1, CKM_ECDH1_DERIVE}) {
    const std::string name = MechanismText(mechanism);
    const auto& offered = listing.slot_mechanisms;
    if (std::find(offered.begin(), offered.end(), name) != offered.end()) useful.push_back(name);
  }
  return ListOr(useful, "none");
}

std::string PublicationText(const Publication& publication) {
  std::string text;
  if (!publication.ended.empty()) {
    text = "The token would publish nothing: " + publication.ended + ".\n";
  } else if (publication.items.empty()) {
    text = "The token would publish nothing.\n";
  } else {
    text = "The token would publish\n";
  }
  for (const ItemListing& item : publication.items) {
    text += "  " + item.kind + " " + Quoted(item.name) + ", object ID " + item.object_id;
    if (item.kind == "key") text += ": " + ListOr(item.capabilities, "for nothing");
    text += '\n';
  }
  if (!publication.dropped.empty()) text += "It would leave out, without a word\n";
  for (const std::string& dropped : publication.dropped) text += "  " + dropped + "\n";
  return text;
}

}  // namespace

std::string ListingText(const Report& report) {
  const Listing& listing = report.listing;
  std::string text = SlotsText(listing);
  if (listing.judged == 0) return text;
  text += "Card number: " + (listing.card_number.empty() ? "none" : listing.card_number) + "\n";
  text += CertificatesText(listing) + KeysText(report);
  if (!listing.incomplete.empty()) text += "There may be more: " + listing.incomplete + "\n";
  text += "Mechanisms of the slot that matter: " + UsefulMechanisms(listing) + "\n";
  return text + PublicationText(listing.publication);
}

}  // namespace kelvrin::modulecheck
