// What a module shows, as the report has it. Texts are fit to be printed (see Printable).
#pragma once

#include <nlohmann/json_fwd.hpp>

#include "modulecheck/objects.h"

namespace kelvrin::modulecheck {

// The slots and the choice among them:
//   {"slots": [{"readerName", "hasCard", "label", "serial", "readerNameLeadsTo"}],
//    "picked": NUMBER, "why": TEXT, "fallback": BOOL, "judged": NUMBER}
// Numbers count from 1; 0 is none. "readerNameLeadsTo" is the slot that this name makes the
// extension pick: an earlier one whose description contains it, perhaps.
nlohmann::json ListSlots(const Module& module);

// Adds what the card shows without a login: "cardNumber", "mechanisms", "certificates",
// "publicKeys", "privateKeys". A key that allows only mechanisms which the extension never asks for
// is named in `warnings`.
void ListCard(const Module& module, const Contents& contents, nlohmann::json* listing,
              std::vector<std::string>* warnings);

// The private keys that show.
nlohmann::json ListPrivateKeys(const Contents& contents);

// Goes through what follows the bring-up, if that worked, in the extension's order and without
// finishing a search: the certificates, each one's public key and what that says of its use. Met
// when a key would be published. `published` receives
//   {"items": [{"kind": "certificate" | "key", "name", "objectId", "capabilities"}],
//    "dropped": [TEXT], "ended": TEXT}
// where "dropped" says what the extension leaves out and why, and "ended", which is empty
// otherwise, why the whole set-up ends without a token.
Judgement GoThroughSetUp(const Module& module, nlohmann::json* published);

// The certificates of the module's listing that are not in the one behind the adapter, and why, as
// [{"label", "id", "reason"}]; none where one of them lists no certificates.
nlohmann::json LeftOut(const nlohmann::json& alone, const nlohmann::json& behind);

}  // namespace kelvrin::modulecheck
