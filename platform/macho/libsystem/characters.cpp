#include "platform/macho/libsystem/characters.h"

#include <cctype>

#include "platform/macho/libsystem/tables.h"

namespace macho::libsystem {
namespace {

// The beginning of what macOS calls a rune locale, which its inlined functions read.
struct RuneLocale {
  char magic[8], encoding[32];
  void *get_rune, *put_rune;
  int32_t invalid;
  uint32_t classes[256];
  int32_t lower[256], upper[256];
  void* rest[16];
};

constexpr int kAscii = 128;

uint32_t ClassesOf(int c) {
  struct Class {
    int (*has)(int);
    uint32_t bit;
  };
  static constexpr Class kClasses[] = {
      {isalpha, 0x100},    {iscntrl, 0x200},   {isdigit, 0x400},   {isgraph, 0x800},
      {islower, 0x1000},   {ispunct, 0x2000},  {isspace, 0x4000},  {isupper, 0x8000},
      {isxdigit, 0x10000}, {isblank, 0x20000}, {isprint, 0x40000},
  };
  uint32_t classes = 0;
  for (const Class& each : kClasses) {
    if (each.has(c) != 0) classes |= each.bit;
  }
  // The low byte is a digit's value.
  if (isdigit(c) != 0) return classes | static_cast<uint32_t>(c - '0');
  if (isxdigit(c) != 0) return classes | static_cast<uint32_t>((c | 32) - 'a' + 10);
  return classes;
}

RuneLocale MakeLocale() {
  RuneLocale locale = {};
  for (int c = 0; c < 256; ++c) {
    const bool ascii = c < kAscii;
    locale.classes[c] = ascii ? ClassesOf(c) : 0;
    locale.lower[c] = ascii ? tolower(c) : c;
    locale.upper[c] = ascii ? toupper(c) : c;
  }
  return locale;
}

RuneLocale rune_locale = MakeLocale();

int MaskRune(int c, unsigned long mask) {
  return c >= 0 && c < 256 ? static_cast<int>(rune_locale.classes[c] & mask) : 0;
}

const StandIn kTable[] = {
    {"__DefaultRuneLocale", &rune_locale},
    {"___maskrune", Address(MaskRune)},
};

}  // namespace

const uint32_t* CharacterClasses() { return rune_locale.classes; }

std::span<const StandIn> Characters() { return kTable; }

}  // namespace macho::libsystem
