// What the property lists of the bundle say: exactly these keys, with these values.
#pragma once

#include <filesystem>

#include "tests/macos/bundle.h"
#include "tests/macos/findings.h"

namespace kelvrin::macos {

// The application's Info.plist.
Findings CheckApplicationInfo(const Bundle& bundle);

// The extension's Info.plist. Without an AID in the options it names none, so that the driver is
// asked for every card and nothing holds the card exclusively; and it names no principal class,
// which is the system's own.
Findings CheckExtensionInfo(const Bundle& bundle);

// The extension's config.plist.
Findings CheckConfiguration(const Bundle& bundle);

// The entitlements that the extension is signed with.
Findings CheckEntitlements(const std::filesystem::path& entitlements);

// What the two Info.plist must say alike, or else the system takes no notice of the extension: the
// extension's identifier begins with the application's, the versions and oldest systems are equal,
// the executables exist, and the class of the token is the extension's identifier.
Findings CheckInfosTogether(const Bundle& bundle);

}  // namespace kelvrin::macos
