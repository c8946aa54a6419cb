#include "platform/macho/objc/strings.h"

#include <codecvt>
#include <cstdlib>
#include <cstring>
#include <locale>

#include "platform/macho/objc/metadata.h"
#include "platform/macho/objc/runtime.h"

namespace macho::objc {
namespace {

// What GNUstep's compiler writes: the class, bytes of UTF-8, their number.
struct GnustepString {
  void* isa;
  const char* text;
  uint64_t length;
};

// UTF-16 as UTF-8 that stays for good.
std::string_view Utf8(const String& string) {
  std::u16string units(string.length, u'\0');
  memcpy(units.data(), string.text, units.size() * sizeof(char16_t));
  std::wstring_convert<std::codecvt_utf8_utf16<char16_t>, char16_t> converter;
  return *new std::string(converter.to_bytes(units));
}

}  // namespace

void ConvertStrings(const Image& image) {
  const Section* const section = image.Find("__cfstring");
  if (section == nullptr) return;
  void* const constant =
      const_cast<void*>(static_cast<const void*>(TheRuntime().find_class("NSConstantString")));
  auto* const strings = reinterpret_cast<String*>(section->start);
  for (size_t i = 0; i < section->size / sizeof(String); ++i) {
    const String from = strings[i];
    std::string_view text(static_cast<const char*>(from.text), from.length);
    if (from.flags == kUtf16) {
      text = Utf8(from);
    } else if (from.flags != kAscii) {
      throw LoadError(image.path + ": a constant string of an unknown kind");
    }
    const GnustepString to = {constant, text.data(), text.size()};
    memcpy(&strings[i], &to, sizeof(to));
  }
}

}  // namespace macho::objc
