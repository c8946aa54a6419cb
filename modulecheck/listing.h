// What a module shows, as the report has it. Texts are fit to be printed (see Printable).
#pragma once

#include <nlohmann/json_fwd.hpp>

#include "modulecheck/module.h"

namespace kelvrin::modulecheck {

// The slots and the choice among them:
//   {"slots": [{"readerName", "hasCard", "label", "serial", "readerNameLeadsTo"}],
//    "picked": NUMBER, "why": TEXT, "fallback": BOOL, "judged": NUMBER}
// Numbers count from 1; 0 is none. "readerNameLeadsTo" is the slot that this name makes the
// extension pick: an earlier one whose description contains it, perhaps.
nlohmann::json ListSlots(const Module& module);

// Adds what the card shows without a login: "cardNumber", "mechanisms", "certificates",
// "publicKeys", "privateKeys". A key that allows only mechanisms which the extension never asks for
// is named in `warnings`. Throws CallFailed.
void ListCard(const Module& module, nlohmann::json* listing, std::vector<std::string>* warnings);

// The private keys that show now. Throws CallFailed.
nlohmann::json ListPrivateKeys(const Module& module);

}  // namespace kelvrin::modulecheck
