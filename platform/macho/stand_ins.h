// What stands for a symbol of macOS's libraries in this process.
#pragma once
#include <span>
#include <string_view>

namespace macho {

// A symbol, with its leading underscore, and what an image gets for it.
struct StandIn {
  const char* symbol;
  void* address;
};

template <typename F>
void* Address(F* function) {
  return reinterpret_cast<void*>(function);
}

// What stands for a symbol that an image binds to a library ("libSystem"). Null when nothing does:
// no function of the C library is bound unless it is replaced or known to agree on both systems.
void* FindStandIn(std::string_view library, std::string_view symbol);

}  // namespace macho
