// Reads the compiler's encoding of a log line's arguments.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/linux/log/line.h"

namespace oslog {

// Returns the text of an object that a "%@" argument names; the object is borrowed and not null.
using ObjectDescriber = std::string (*)(const void* object);

// Makes a line of a format and the `size` bytes that __builtin_os_log_format wrote for it. What the
// buffer points to is copied. `describe` may be null: objects then show their address. Integers,
// strings and objects are decoded, which is what the lines here have: an argument of another kind
// reads "<decode: mismatch>", one that the buffer lacks "<decode: missing data>".
Line Decode(os_log_type_t type, const char* format, const uint8_t* buffer, size_t size,
            ObjectDescriber describe);

}  // namespace oslog
