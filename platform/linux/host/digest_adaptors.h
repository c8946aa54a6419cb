// What RSA and ECDSA signatures share: the platform hashes messages, and checks digests.
#pragma once

#include <optional>
#include <string>

#include "platform/linux/host/adaptor.h"
#include "platform/linux/host/digest.h"

namespace host {

// From a message to its digest, as input of the algorithm `next`.
Adaptor hashing_adaptor(Hash hash, const std::string& next);

// An error when a digest has not its hash function's length.
std::optional<Error> digest_size_error(Hash hash, const Bytes& digest);

}  // namespace host
