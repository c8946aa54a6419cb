// Prints what a binary of the macOS build imports, as the lists in imports/ have it.
#include <exception>
#include <iostream>

#include "tests/macos/expected_binaries.h"
#include "tests/macos/imports.h"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: macos_imports extension|application|adapter|modulecheck\n";
    return 2;
  }
  try {
    const auto binary = kelvrin::macos::ExpectedBinary(KELVRIN_MACOS_BUILD, argv[1]);
    for (const auto& line : kelvrin::macos::ImportLines(kelvrin::macos::MachOFile(binary.path))) {
      std::cout << line << '\n';
    }
    return 0;
  } catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return 1;
  }
}
