// What the libraries of macOS 10.14 lack, by the mangled names of what came later.
#include <array>

#include "tests/macos/import_checks.h"

namespace kelvrin::macos {
namespace {

struct Newer {
  const char* part;  // of the symbol
  const char* reason;
};

// The versions are those of Apple's library, as the annotations of LLVM's headers name them.
constexpr std::array kNewer = {
    Newer{"4__fs10filesystem", "std::filesystem came with macOS 10.15"},
    Newer{"6__itoa8__u", "to_chars for integers in the library came with macOS 10.15"},
    Newer{"__libcpp_atomic_", "std::atomic's wait and notify came with macOS 11.0"},
    Newer{"__cxx_atomic_notify_", "std::atomic's wait and notify came with macOS 11.0"},
    Newer{"__barrier_algorithm_base", "std::barrier came with macOS 11.0"},
    Newer{"7codecvtIDsDu", "char8_t came with macOS 11.0"},
    Newer{"7codecvtIDiDu", "char8_t came with macOS 11.0"},
    Newer{"15basic_stringbufI", "string streams in the library came with macOS 12.3"},
    Newer{"18basic_stringstreamI", "string streams in the library came with macOS 12.3"},
    Newer{"19basic_istringstreamI", "string streams in the library came with macOS 12.3"},
    Newer{"19basic_ostringstreamI", "string streams in the library came with macOS 12.3"},
    Newer{"13basic_filebufI", "file streams in the library came with macOS 12.3"},
    Newer{"14basic_ifstreamI", "file streams in the library came with macOS 12.3"},
    Newer{"14basic_ofstreamI", "file streams in the library came with macOS 12.3"},
    Newer{"8to_charsEPcS0_", "to_chars for floating point came with macOS 13.4"},
    Newer{"22__libcpp_verbose_abort", "the handler of failed assertions came with macOS 13.4"},
    Newer{"__13pmr", "std::pmr came with macOS 14.0"},
    Newer{"___cxa_init_primary_exception", "came with LLVM 18's library"},
    Newer{"31__from_native_exception_pointer", "came with LLVM 18's library"},
    Newer{"19__is_posix_terminal", "std::print came with LLVM 18's library"},
    Newer{"18__get_ostream_file", "std::print came with LLVM 18's library"},
    Newer{"17bad_function_call", "std::bad_function_call in the library came with LLVM 19's"},
    Newer{"19bad_expected_access", "std::bad_expected_access in the library came with LLVM 19's"},
    Newer{"6chrono4tzdb", "time zones came with LLVM 19's library"},
    Newer{"6chrono9time_zone", "time zones came with LLVM 19's library"},
    Newer{"19__type_descriptor_t", "typed allocation came with macOS 15.0"},
    Newer{"12experimental", "experimental parts never were in Apple's library"},
    Newer{"25__init_copy_ctor_external", "strings of the unstable ABI never were in it"},
    Newer{"17__assign_external", "strings of the unstable ABI never were in it"},
    Newer{"17__assign_no_alias", "strings of the unstable ABI never were in it"},
    Newer{"26__erase_external_with_move", "strings of the unstable ABI never were in it"},
    Newer{"_aligned_alloc", "aligned_alloc came with macOS 10.15"},
    Newer{"_objc_opt_", "the runtime's short cuts came with macOS 10.15"},
    Newer{"_objc_claimAutoreleasedReturnValue", "came with macOS 13.0"},
};

}  // namespace

std::string NewerThanMacOS1014(const std::string& symbol) {
  for (const Newer& newer : kNewer) {
    if (symbol.find(newer.part) != std::string::npos) return newer.reason;
  }
  return "";
}

}  // namespace kelvrin::macos
