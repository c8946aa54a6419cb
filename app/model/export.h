// A certificate and its public key in the forms that other programs read.
#pragma once

#include <optional>
#include <string>

#include "app/model/certificate.h"

namespace kelvrin::app {

// The line for ~/.ssh/authorized_keys, without its end: type, key in base64, name. Nothing for keys
// that are neither RSA nor on P-256.
std::optional<std::string> SshKey(const Certificate& certificate);

// The certificate in PEM, with the line's end.
std::string Pem(const Certificate& certificate);

// A file's name for it: the certificate's name without what file systems take amiss, and ".pem".
std::string PemFileName(const Certificate& certificate);

}  // namespace kelvrin::app
