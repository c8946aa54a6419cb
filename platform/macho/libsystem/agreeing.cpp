// What is the same in both C libraries: name, arguments, layouts and numbers.
#include <algorithm>
#include <array>

#include "platform/macho/libsystem/tables.h"

namespace macho::libsystem {
namespace {

constexpr std::array kNames = std::to_array<std::string_view>({
    "CC_SHA256",
    "__cxa_atexit",
    "__stack_chk_fail",
    "_exit",
    "abort",
    "access",
    "arc4random_buf",
    "calloc",
    "close",
    "dup",
    "dup2",
    "environ",
    "exit",
    "fclose",
    "fdopen",
    "ferror",
    "fflush",
    "fopen",
    "fputc",
    "fputs",
    "fread",
    "free",
    "fseek",
    "fseeko",
    "ftello",
    "fwrite",
    "getcwd",
    "getenv",
    "getpid",
    "localeconv",
    "malloc",
    "memchr",
    "memcmp",
    "memcpy",
    "memmove",
    "memset",
    "mkdtemp",
    "mlock",
    "munlock",
    "munmap",
    "pipe",
    "poll",
    "puts",
    "read",
    "rmdir",
    "setbuf",
    "setenv",
    "strcmp",
    "strlen",
    "strncmp",
    "strnlen",
    "strstr",
    "strtod",
    "strtoll",
    "strtoull",
    "time",
    "unlink",
    "write",
});
static_assert(std::is_sorted(kNames.begin(), kNames.end()));

// Only where Apple passes variable arguments and long double as Linux does: not on arm64.
constexpr std::array kNamesOfX86 = std::to_array<std::string_view>({
    "fprintf",
    "printf",
    "snprintf",
    "strtold",
});
static_assert(std::is_sorted(kNamesOfX86.begin(), kNamesOfX86.end()));

}  // namespace

bool Agrees(std::string_view name) {
#ifndef __aarch64__
  if (std::binary_search(kNamesOfX86.begin(), kNamesOfX86.end(), name)) return true;
#endif
  return std::binary_search(kNames.begin(), kNames.end(), name);
}

}  // namespace macho::libsystem
