// Text reduced to ASCII.
#ifndef KELVRIN_ADAPTER_ASCII_TEXT_H_
#define KELVRIN_ADAPTER_ASCII_TEXT_H_

#include <string>
#include <string_view>

namespace kelvrin::adapter {

// UTF-8 text in printable ASCII: ü becomes ue, é becomes e, Greek and Cyrillic letters become Latin
// ones, what is left becomes a question mark and control characters become blanks. Bytes that are
// not UTF-8 are read as ISO 8859-1; combining marks and NULs at the end are dropped. ASCII text
// comes back as it is. The result is empty only for no text, or NULs alone.
std::string ToAscii(std::string_view text);

// Whether all of the text is UTF-8.
bool IsUtf8(std::string_view text);

}  // namespace kelvrin::adapter

#endif  // KELVRIN_ADAPTER_ASCII_TEXT_H_
