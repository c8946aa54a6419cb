// What is the same in both C libraries: name, arguments, layouts and numbers, as far as programs
// without variable arguments on arm64 go.
#include <algorithm>
#include <array>

#include "platform/macho/libsystem/tables.h"

namespace macho::libsystem {
namespace {

constexpr std::array kNames = std::to_array<std::string_view>({
    "__cxa_atexit", "__stack_chk_fail",
    "_exit",        "abort",
    "access",       "calloc",
    "close",        "dup",
    "dup2",         "environ",
    "exit",         "fclose",
    "fdopen",       "ferror",
    "fflush",       "fopen",
    "fprintf",      "fputc",
    "fputs",        "fread",
    "free",         "fseek",
    "fseeko",       "ftello",
    "fwrite",       "getcwd",
    "getenv",       "getpid",
    "localeconv",   "malloc",
    "memchr",       "memcmp",
    "memcpy",       "memmove",
    "memset",       "mkdtemp",
    "mlock",        "munlock",
    "munmap",       "pipe",
    "poll",         "printf",
    "puts",         "read",
    "rmdir",        "setbuf",
    "setenv",       "snprintf",
    "strlen",       "strncmp",
    "strnlen",      "strstr",
    "strtod",       "strtold",
    "strtoll",      "strtoull",
    "unlink",       "write",
});
static_assert(std::is_sorted(kNames.begin(), kNames.end()));

}  // namespace

bool Agrees(std::string_view name) {
  return std::binary_search(kNames.begin(), kNames.end(), name);
}

}  // namespace macho::libsystem
