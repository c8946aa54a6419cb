// The unified log: the stand-in for it, if the program has one.
#include <dlfcn.h>

#include <cstdint>

#include "platform/macho/libsystem/tables.h"

namespace macho::libsystem {
namespace {

using Write = void (*)(void*, void*, uint8_t, const char*, uint8_t*, uint32_t);
using IsEnabled = bool (*)(void*, uint8_t);

// What an image gets for the default log; only its address is used.
char default_log[64];

// The log of the stand-in that an image means.
void* Meant(void* log) {
  static void* const real = dlsym(RTLD_DEFAULT, "_os_log_default");
  return log == default_log ? real : log;
}

void WriteLine(void* image, void* log, uint8_t type, const char* format, uint8_t* buffer,
               uint32_t size) {
  static const auto write = reinterpret_cast<Write>(dlsym(RTLD_DEFAULT, "_os_log_impl"));
  if (write != nullptr) write(image, Meant(log), type, format, buffer, size);
}

bool TypeIsEnabled(void* log, uint8_t type) {
  static const auto enabled =
      reinterpret_cast<IsEnabled>(dlsym(RTLD_DEFAULT, "os_log_type_enabled"));
  return enabled != nullptr && enabled(Meant(log), type);
}

const StandIn kTable[] = {
    {"__os_log_default", default_log},
    {"__os_log_impl", Address(WriteLine)},
    {"_os_log_type_enabled", Address(TypeIsEnabled)},
};

}  // namespace

std::span<const StandIn> Log() { return kTable; }

}  // namespace macho::libsystem
