// How tokenhost shows keychain items and algorithms.
#pragma once

#include <string>
#include <vector>

#include "platform/linux/host/client.h"
#include "platform/linux/host/keychain_items.h"

namespace tokenhost {

// The text with control characters replaced: what a card says shall not steer the terminal.
std::string printable(std::string text);

// For people: two or three lines an item.
std::string list_text(const std::string& instance_id, const std::vector<host::Item>& items);

// For programs: {"instanceID": ..., "duplicateObjectIDs": [...], "items": [...]}.
std::string list_json(const std::string& instance_id, const std::vector<host::Item>& items);

// A line for each algorithm: "direct", "resolved" or "-" for each operation.
std::string support_table(const host::Client& client, const host::Item& key);

}  // namespace tokenhost
