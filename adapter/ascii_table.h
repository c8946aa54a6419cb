// What each letter becomes in ASCII.
#ifndef KELVRIN_ADAPTER_ASCII_TABLE_H_
#define KELVRIN_ADAPTER_ASCII_TABLE_H_

#include <string_view>

namespace kelvrin::adapter {

// The ASCII text for one character beyond ASCII; "?" for those without one.
std::string_view AsciiOf(char32_t character);

}  // namespace kelvrin::adapter

#endif  // KELVRIN_ADAPTER_ASCII_TABLE_H_
