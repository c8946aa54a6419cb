// tokenhost's command line.
#pragma once

#include <string>
#include <variant>

#include "platform/linux/host/operation.h"

namespace tokenhost {

enum class Log { kOff, kError, kDefault };

enum class Command { kList, kSupports, kExport, kOperation };

struct Options {
  std::string bundle;    // empty: the one beside the program
  std::string pin_file;  // empty: the terminal
  Log log = Log::kOff;
  bool show_private = false;
  Command command = Command::kList;
  bool json = false;                                   // of list
  host::Operation operation = host::Operation::kSign;  // of an operation
  std::string key;                                     // object ID or label
  std::string algorithm;
  std::string input;   // empty: standard input
  std::string output;  // empty: standard output
};

// The options, or, when help was asked for or the usage is wrong, the exit status: 0 or 2; what
// there is to say has then been printed.
std::variant<Options, int> Parse(int argc, char** argv);

}  // namespace tokenhost
