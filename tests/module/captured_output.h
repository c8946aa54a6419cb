// Takes what the process writes to a file descriptor, byte for byte.
#pragma once

#include <string>

namespace scripted {

// Redirects the descriptor (1 or 2) from construction until Text or destruction.
class CapturedOutput {
 public:
  explicit CapturedOutput(int descriptor);
  ~CapturedOutput();
  CapturedOutput(const CapturedOutput&) = delete;
  CapturedOutput& operator=(const CapturedOutput&) = delete;

  // Ends the redirection and returns all that was written.
  std::string Text();

 private:
  void Restore();

  const int descriptor_;
  int original_;
  int file_;
};

}  // namespace scripted
