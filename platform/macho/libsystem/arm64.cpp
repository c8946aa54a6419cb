// What Apple calls otherwise on arm64 than Linux does: variable arguments lie on the stack, and a
// long double is a double.
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "platform/macho/entry_points.h"
#include "platform/macho/libsystem/files.h"
#include "platform/macho/libsystem/tables.h"

namespace macho::libsystem {
namespace {

const StandIn kTable[] = {
    {"_fcntl", Address(macho_fcntl)},       {"_fprintf", Address(macho_fprintf)},
    {"_open", Address(macho_open)},         {"_printf", Address(macho_printf)},
    {"_snprintf", Address(macho_snprintf)}, {"_strtold", Address(strtod)},
};

}  // namespace

std::span<const StandIn> Arm64() { return kTable; }

// Where the entry points go on.
extern "C" {

[[gnu::format(printf, 1, 0)]] int macho_printf_at(const char* format, void* stack) {
  return vprintf(format, ArgumentsAt(stack));
}

[[gnu::format(printf, 2, 0)]] int macho_fprintf_at(FILE* file, const char* format, void* stack) {
  return vfprintf(file, format, ArgumentsAt(stack));
}

[[gnu::format(printf, 3, 0)]] int macho_snprintf_at(char* to, size_t size, const char* format,
                                                    void* stack) {
  return vsnprintf(to, size, format, ArgumentsAt(stack));
}

int macho_open_at(const char* path, int flags, const unsigned* mode) {
  return OpenFile(path, flags, *mode);
}

int macho_fcntl_at(int file, int command, const uint64_t* argument) {
  return Fcntl(file, command, *argument);
}

}  // extern "C"

}  // namespace macho::libsystem
