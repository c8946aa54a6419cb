// The texts that the bundle has for its users, in German and in English.
#pragma once

#include <filesystem>
#include <set>
#include <string>

#include "tests/macos/findings.h"

namespace kelvrin::macos {

// The keys that the shipped sources of a folder ask for: literals within the message
// localizedStringForKey: and the messages [self text:...].
std::set<std::string> UsedTextKeys(const std::filesystem::path& sources);

// The tables of a bundle's folder Resources: each language has exactly the keys that are used, each
// once, with a text for each, all in UTF-8 with their letters intact; and German has letters that
// English lacks.
Findings CheckTexts(const std::filesystem::path& resources, const std::set<std::string>& used);

}  // namespace kelvrin::macos
