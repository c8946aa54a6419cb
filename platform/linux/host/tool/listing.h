// How tokenhost shows keychain items, keys and algorithms.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/host/client.h"
#include "platform/linux/host/keychain_items.h"

namespace tokenhost {

// The text with control characters replaced, except those that are kept: what a card says shall not
// steer the terminal.
std::string Printable(std::string text, std::string_view kept = "");

// For people: two or three lines an item.
std::string ListText(const std::string& instance_id, const std::vector<host::Item>& items);

// For programs: {"instanceID": ..., "duplicateObjectIDs": [...], "items": [...]}.
std::string ListJson(const std::string& instance_id, const std::vector<host::Item>& items);

// A line for each algorithm, with its operation and "direct", "resolved" or "-".
std::string SupportTable(const host::Client& client, const host::Item& key);

// The certificate whose public key is the key's, and that public key (SubjectPublicKeyInfo), as
// PEM. Fails when no certificate among the items is it.
host::Result<host::Bytes> ExportKey(const std::vector<host::Item>& items, const host::Item& key);

}  // namespace tokenhost
