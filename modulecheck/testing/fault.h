// What the parts of the faulty module share.
#pragma once

#include <p11-kit/pkcs11.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

namespace kelvrin::fault {

// The module behind.
inline CK_FUNCTION_LIST* behind = nullptr;

inline std::string Environment(const char* name) {
  const char* const value = std::getenv(name);
  return value == nullptr ? "" : value;
}

// Whether this is the fault that the test chose.
inline bool Is(std::string_view fault) {
  static const std::string wanted = Environment("KELVRIN_FAULT");
  return fault == wanted;
}

// Writes a line to the file of the calls.
inline void Note(const std::string& function) {
  const std::string path = Environment("KELVRIN_FAULT_CALLS");
  if (path.empty()) return;
  std::FILE* const file = std::fopen(path.c_str(), "a");
  if (file == nullptr) std::abort();
  std::fprintf(file, "%s\n", function.c_str());
  std::fclose(file);
}

[[noreturn]] inline void Hang() {
  for (;;) pause();
}

}  // namespace kelvrin::fault
