// Text reduced to ASCII.
#pragma once

#include <string>
#include <string_view>

namespace kelvrin::adapter {

// UTF-8 text in printable ASCII: ü becomes ue, é becomes e, other scripts' letters become question
// marks, control characters become blanks. Bytes that are not UTF-8 are read as ISO 8859-1.
// Combining marks are dropped, and NULs at the end. The result is empty only for no text, or NULs
// alone.
std::string ToAscii(std::string_view text);

bool IsAscii(std::string_view text);

}  // namespace kelvrin::adapter
