// Says what differs between two folders; fails when something does, or when there is nothing in
// them.
#include <exception>
#include <iostream>

#include "tests/macos/same_folders.h"

int main(int argc, char** argv) {
  if (argc != 3) {
    std::cerr << "usage: macos_same_folders FOLDER FOLDER\n";
    return 2;
  }
  try {
    if (std::filesystem::is_empty(argv[1])) {
      std::cerr << argv[1] << " is empty\n";
      return 1;
    }
    const auto findings = kelvrin::macos::CompareFolders(argv[1], argv[2]);
    for (const auto& finding : findings) std::cerr << finding << '\n';
    return findings.empty() ? 0 : 1;
  } catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return 1;
  }
}
