// Self-signed certificates, made when a test asks for them.
#pragma once

#include <string>

#include "tests/module/call.h"

namespace token_testing {

// The last one is a kind of key that keychain items cannot stand for.
enum class KeyKind { kRsa, kEllipticCurve, kEd25519 };

// Returns the DER encoding of a certificate whose subject has this common name. Every call with
// the same arguments returns the same bytes; a process makes one key of each kind.
const scripted::Bytes& CertificateDer(KeyKind kind, const std::string& common_name);

}  // namespace token_testing
