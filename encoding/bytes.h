// Octet strings and views of them.
#pragma once

#include <span>
#include <vector>

namespace kelvrin::encoding {

using Bytes = std::vector<unsigned char>;
using ByteView = std::span<const unsigned char>;

}  // namespace kelvrin::encoding
