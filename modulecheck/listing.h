// What a module shows. Texts are fit to be printed (see Printable).
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace kelvrin::modulecheck {

struct SlotListing {
  std::string reader_name;  // the description without its padding, as config.plist has it
  bool has_token = false;
  bool initialised = false;
  std::string label;  // the token's; empty without one
  std::string serial;
  // The number of the slot that this reader name makes the extension pick: this one, unless the
  // name is part of an earlier slot's description.
  std::size_t leads_to = 0;
};

struct CertificateListing {
  std::string label;
  std::string id;        // CKA_ID in hexadecimal
  std::size_t size = 0;  // of the DER encoding, in bytes
};

struct PublicKeyListing {
  std::string label;
  std::string id;
  std::string type;                     // "RSA-2048", "EC P-256"
  std::vector<std::string> usage;       // VERIFY, ENCRYPT, WRAP, DERIVE, as far as they are true
  std::vector<std::string> unreadable;  // those that the module does not tell
  std::vector<std::string> mechanisms;  // CKA_ALLOWED_MECHANISMS
  std::string mechanisms_result;        // why they cannot be read; empty when they can
};

struct PrivateKeyListing {
  std::string label;
  std::string id;
  std::string type;
  std::vector<std::string> usage;  // SIGN, DECRYPT, DERIVE
  bool always_authenticate = false;
};

// One keychain item.
struct ItemListing {
  std::string kind;                       // certificate, key
  std::string name;                       // as the keychain shows it
  std::string object_id;                  // in hexadecimal
  std::vector<std::string> capabilities;  // of a key: sign, decrypt, key-exchange
};

// What the token's set-up would publish.
struct Publication {
  std::vector<ItemListing> items;
  std::vector<std::string> dropped;  // what is left out, and why
  std::string ended;                 // why the whole set-up ends without a token; else empty
};

struct Listing {
  std::vector<SlotListing> slots;
  std::size_t picked = 0;  // number of the slot that the extension picks, from 1; 0 for none
  std::string why;         // why that one, or why none
  // The reader name fits no slot, and the extension takes the last one for want of a better.
  bool is_fallback = false;
  std::size_t judged = 0;  // number of the slot that was looked at
  std::string card_number;
  std::vector<std::string> slot_mechanisms;
  std::vector<CertificateListing> certificates;
  std::vector<PublicKeyListing> public_keys;
  std::vector<PrivateKeyListing> private_keys;  // those that show without a login
  std::string incomplete;                       // why not all objects are listed; else empty
  Publication publication;
};

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(SlotListing, reader_name, has_token, initialised, label, serial,
                                   leads_to)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(CertificateListing, label, id, size)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(PublicKeyListing, label, id, type, usage, unreadable, mechanisms,
                                   mechanisms_result)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(PrivateKeyListing, label, id, type, usage, always_authenticate)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(ItemListing, kind, name, object_id, capabilities)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Publication, items, dropped, ended)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Listing, slots, picked, why, is_fallback, judged, card_number,
                                   slot_mechanisms, certificates, public_keys, private_keys,
                                   incomplete, publication)

}  // namespace kelvrin::modulecheck
