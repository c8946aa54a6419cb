// modulecheck's command line.
#pragma once

#include <string>
#include <variant>

#include "encoding/secret.h"

namespace kelvrin::modulecheck {

struct Options {
  std::string module;
  std::string reader_name;      // empty: none
  std::string pin_file;         // empty: nobody logs in
  std::string adapter_library;  // empty: the one beside the program
  std::string adapter_config;   // empty: none
  bool through_adapter = false;
  bool json = false;
  unsigned timeout = 300;  // seconds for everything
};

// The options, or, when help was asked for or the usage is wrong, the exit status: 0 or 2; what
// there is to say has then been printed.
std::variant<Options, int> Parse(int argc, char** argv);

// Takes the one line of the file, without its end, as the PIN. Throws Failure, which names the file
// and never its contents, when it is no plain file, cannot be read, has no PIN, one that is too
// long or a second line: which of two was meant would cost a try to find out.
void ReadPinFile(const std::string& path, encoding::Secret* pin);

}  // namespace kelvrin::modulecheck
