// Runs programs for tests.
#pragma once

#include <string>
#include <vector>

namespace host::testing {

struct Outcome {
  int status = -1;  // exit status, or -1 when a signal ended it
  std::string output;
  std::string errors;
};

// Runs a program without a terminal, with the text as its standard input.
Outcome RunProgram(const std::vector<std::string>& arguments, const std::string& input = "");

// Runs a program on a terminal of its own; types the answer once it has shown the prompt. Returns
// what the terminal showed, as `output`.
Outcome RunOnTerminal(const std::vector<std::string>& arguments, const std::string& prompt,
                      const std::string& answer);

}  // namespace host::testing
