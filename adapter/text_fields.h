// The fixed, blank-padded text fields of PKCS#11 records.
#ifndef KELVRIN_ADAPTER_TEXT_FIELDS_H_
#define KELVRIN_ADAPTER_TEXT_FIELDS_H_

#include <p11-kit/pkcs11.h>

#include <algorithm>
#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace kelvrin::adapter {

// The field's text without the padding, be it blanks or NULs.
inline std::string FieldText(std::span<const CK_UTF8CHAR> field) {
  const auto end = std::find(field.begin(), field.end(), CK_UTF8CHAR{0});
  std::string text(field.begin(), end);
  text.erase(text.find_last_not_of(' ') + 1);
  return text;
}

// Fills the field with the text, padded with blanks. Text that does not fit is cut where a UTF-8
// character ends.
inline void SetField(std::span<CK_UTF8CHAR> field, std::string_view text) {
  std::size_t size = std::min(text.size(), field.size());
  while (size > 0 && size < text.size() && (static_cast<unsigned char>(text[size]) & 0xC0) == 0x80)
    --size;
  std::fill(std::copy_n(text.begin(), size, field.begin()), field.end(), CK_UTF8CHAR{' '});
}

}  // namespace kelvrin::adapter

#endif  // KELVRIN_ADAPTER_TEXT_FIELDS_H_
