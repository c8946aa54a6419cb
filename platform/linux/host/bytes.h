// Octet strings.
#pragma once

#include <cstdint>
#include <vector>

namespace host {

using Bytes = std::vector<uint8_t>;

}  // namespace host
