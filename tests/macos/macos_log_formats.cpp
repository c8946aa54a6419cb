// Prints the formats of the extension's log lines, as log_formats.txt lists them.
#include <exception>
#include <iostream>

#include "tests/macos/log_formats.h"

int main() {
  try {
    for (const auto& format : kelvrin::macos::FormatsOfExtension(KELVRIN_SOURCE)) {
      std::cout << kelvrin::macos::ListLine(format) << "\n";
    }
  } catch (const std::exception& error) {
    std::cerr << "macos_log_formats: " << error.what() << "\n";
    return 1;
  }
  return 0;
}
