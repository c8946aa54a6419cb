#include "platform/macho/libsystem/libcxx.h"

#include <dlfcn.h>
#include <unwind.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>

#include "platform/macho/image.h"
#include "platform/macho/libsystem/characters.h"
#include "platform/macho/libsystem/dynamic_linker.h"
#include "platform/macho/libsystem/errors.h"
#include "platform/macho/libsystem/tables.h"

namespace macho {

void* LibCxx() {
  static void* const library =
      libsystem::Open("libc++.so.1", RTLD_NOW | RTLD_LOCAL | RTLD_DEEPBIND);
  if (library == nullptr) throw LoadError("libc++.so.1 is missing");
  return library;
}

void* LibGcc() {
  static void* const library = dlopen("libgcc_s.so.1", RTLD_NOW);
  if (library == nullptr) throw LoadError("libgcc_s.so.1 is missing");
  return library;
}

namespace libsystem {
namespace {

template <typename F>
F Find(const char* name) {
  return reinterpret_cast<F>(dlsym(LibCxx(), name));
}

// generic_category() with the messages of macOS's numbers: a copy of its table of virtual functions
// in which the last one, message(), is another.
struct Text {  // a std::string of that library, which may be moved as it is
  uint64_t words[3];
};
using Message = Text (*)(const void*, int);
Message linux_message;

Text MessageOf(const void* category, int number) {
  return linux_message(category, LinuxError(number));
}

const void* GenericCategory() {
  constexpr size_t kBefore = 2;   // offset and type stand before the functions
  constexpr size_t kMessage = 8;  // behind two destructors and four functions
  static std::array<void*, 9> table;
  static void* category[4] = {};
  static const bool made = [] {
    const void* real = Find<const void* (*)()>("_ZNSt3__116generic_categoryEv")();
    void* const* const functions = *static_cast<void* const* const*>(real) - kBefore;
    std::copy_n(functions, table.size(), table.begin());
    linux_message = reinterpret_cast<Message>(table[kMessage]);
    table[kMessage] = Address(MessageOf);
    category[0] = static_cast<void*>(table.data() + kBefore);
    return true;
  }();
  static_cast<void>(made);
  return static_cast<const void*>(category);
}

// The facet for char has a table of classes, which inlined code reads: words of 32 bits on macOS,
// of 16 here. Images get a copy with macOS's.
const void* UseFacet(const void* locale, const void* id) {
  static const auto use =
      Find<const void* (*)(const void*, const void*)>("_ZNKSt3__16locale9use_facetERNS0_2idE");
  static const void* const ctype = Find<const void*>("_ZNSt3__15ctypeIcE2idE");
  const void* const facet = use(locale, id);
  if (id != ctype) return facet;
  static std::array<const void*, 4> copy;  // functions, owners, table, whether it is owned
  static const bool made = [facet] {
    std::copy_n(static_cast<const void* const*>(facet), copy.size(), copy.begin());
    copy[2] = CharacterClasses();
    return true;
  }();
  static_cast<void>(made);
  return static_cast<const void*>(copy.data());
}

// Goes on with an exception in the unwinder that has brought it: a module behind the adapter may
// throw with the program's C++ library.
void ResumeUnwinding(_Unwind_Exception* exception) {
  constexpr uint64_t kOfLlvm = 0x434c4e47432b2b00;  // "CLNGC++\0"
  static const auto of_llvm = Find<decltype(&_Unwind_Resume)>("_Unwind_Resume");
  static const auto of_gcc =
      reinterpret_cast<decltype(&_Unwind_Resume)>(dlsym(LibGcc(), "_Unwind_Resume"));
  (exception->exception_class == kOfLlvm ? of_llvm : of_gcc)(exception);
}

const StandIn kTable[] = {
    {"__Unwind_Resume", Address(ResumeUnwinding)},
    {"__ZNKSt3__16locale9use_facetERNS0_2idE", Address(UseFacet)},
    {"__ZNSt3__116generic_categoryEv", Address(GenericCategory)},
};

}  // namespace

std::span<const StandIn> Cxx() { return kTable; }

}  // namespace libsystem
}  // namespace macho
