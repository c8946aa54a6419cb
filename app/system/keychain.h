// The keychain items of a token.
#pragma once

#import <Security/Security.h>

#include <string>
#include <vector>

#include "app/model/certificate.h"

namespace kelvrin::app {

// The certificates of a token by name, since a card may give them in another order each time, and
// which of them have a key; asks nobody for a PIN. May wait for other processes: not for the main
// thread. Within a pool.
std::vector<Certificate> ReadCertificates(const std::string& token_id);

// The private key of a certificate, which the caller releases; null when the token has none of it
// any more. Not for the main thread, within a pool.
SecKeyRef CopyKey(const Certificate& certificate);

}  // namespace kelvrin::app
