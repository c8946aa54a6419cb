// RSA blocks in the word order of the platform's own arithmetic: least significant byte first.
#pragma once

#include <cstddef>

#include "platform/linux/host/bytes.h"
#include "platform/linux/host/result.h"

namespace host {

Bytes to_words(const Bytes& big_endian);

// Big-endian and padded with zeros to `block_size` bytes. Fails when the number is longer.
Result<Bytes> from_words(const Bytes& words, size_t block_size);

}  // namespace host
