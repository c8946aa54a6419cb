#include "modulecheck/text.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "p11/diagnostics.h"

namespace kelvrin::modulecheck {
namespace {

// Bytes of the UTF-8 sequence at the start of the text; 0 when there is none.
std::size_t SequenceSize(std::string_view text) {
  const auto at = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char first = at(0);
  std::size_t size = 0;
  if (first < 0x80) return 1;
  if (first >= 0xc2 && first <= 0xdf) size = 2;
  if (first >= 0xe0 && first <= 0xef) size = 3;
  if (first >= 0xf0 && first <= 0xf4) size = 4;
  if (size == 0 || text.size() < size) return 0;
  for (std::size_t i = 1; i < size; ++i) {
    if ((at(i) & 0xc0) != 0x80) return 0;
  }
  // Longer than need be, surrogates, and beyond the last character.
  const bool is_odd = (first == 0xe0 && at(1) < 0xa0) || (first == 0xed && at(1) > 0x9f) ||
                      (first == 0xf0 && at(1) < 0x90) || (first == 0xf4 && at(1) > 0x8f);
  return is_odd ? 0 : size;
}

// Control characters of one byte, and those that UTF-8 writes with two.
bool IsControl(std::string_view sequence) {
  const auto first = static_cast<unsigned char>(sequence[0]);
  if (sequence.size() == 1) return first < 0x20 || first == 0x7f;
  return first == 0xc2 && static_cast<unsigned char>(sequence[1]) < 0xa0;
}

std::string Hexadecimal(CK_ULONG number) {
  char text[2 + 2 * sizeof(number) + 1];
  std::snprintf(text, sizeof(text), "0x%lx", number);
  return text;
}

}  // namespace

std::string Hex(ByteView bytes) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  text.reserve(2 * bytes.size());
  for (const CK_BYTE byte : bytes) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

std::string Printable(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    const std::size_t size = SequenceSize(text);
    if (size == 0) {
      result += '?';
    } else if (IsControl(text.substr(0, size))) {
      result += ' ';
    } else {
      result += text.substr(0, size);
    }
    text.remove_prefix(std::max<std::size_t>(size, 1));
  }
  return result;
}

std::string Text(ByteView bytes) {
  return Printable({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

std::string Quoted(std::string_view text) { return "\"" + Printable(text) + "\""; }

std::string_view Field(ByteView field) {
  std::string_view text(reinterpret_cast<const char*>(field.data()), field.size());
  text = text.substr(0, text.find('\0'));
  const std::size_t last = text.find_last_not_of(' ');
  return text.substr(0, last == std::string_view::npos ? 0 : last + 1);
}

std::string ResultText(CK_RV result) {
  return std::string(CKR2Str(result)) + " (" + Hexadecimal(result) + ")";
}

std::string MechanismText(CK_MECHANISM_TYPE mechanism) {
  char name[kMechanismNameLimit];
  mech_to_str(mechanism, name);
  return std::strcmp(name, "Unknown") == 0 ? Hexadecimal(mechanism) : name;
}

std::string Join(const std::vector<std::string>& elements, std::string_view between) {
  std::string text;
  for (const std::string& element : elements) {
    if (!text.empty()) text += between;
    text += element;
  }
  return text;
}

std::string Counted(std::size_t count, std::string_view noun) {
  std::string text = std::to_string(count) + " " + std::string(noun);
  if (count != 1) text += 's';
  return text;
}

std::string Xml(std::string_view text) {
  std::string result;
  for (const char c : text) {
    switch (c) {
      case '&':
        result += "&amp;";
        break;
      case '<':
        result += "&lt;";
        break;
      case '>':
        result += "&gt;";
        break;
      default:
        result += c;
    }
  }
  return result;
}

bool IsAscii(ByteView bytes) {
  return std::all_of(bytes.begin(), bytes.end(), [](CK_BYTE byte) { return byte < 0x80; });
}

}  // namespace kelvrin::modulecheck
