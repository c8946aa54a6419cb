// What the system reads of a certificate.
#pragma once

#import <Security/Security.h>

#include "app/model/certificate.h"

namespace kelvrin::app {

// Name, issuer, validity, serial number, fingerprint and public key; what cannot be read stays
// empty. Any thread, within a pool.
Certificate ReadCertificate(SecCertificateRef certificate);

}  // namespace kelvrin::app
