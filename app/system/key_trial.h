// A key, tried with one scheme.
#pragma once

#include "app/model/system.h"

namespace kelvrin::app {

// Signs a random message, or decrypts one that was encrypted for the key, and verifies the result
// with the certificate's public key. The system may ask for the PIN meanwhile, and the card may
// take its time: not for the main thread, and one at a time. Within a pool.
Attempt TryKey(const Certificate& certificate, Scheme scheme);

}  // namespace kelvrin::app
