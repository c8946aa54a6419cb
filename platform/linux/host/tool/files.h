// Reads what an operation works on, and writes what comes out of it.
#pragma once

#include <optional>
#include <string>

#include "platform/linux/host/result.h"

namespace tokenhost {

// Everything in a file, or what is left of standard input when the path is empty. Errors are one
// sentence that names the file.
host::Result<host::Bytes> ReadInput(const std::string& path);

// Standard output as the caller of the program knows it. From its construction on, whatever else
// writes to descriptor 1 reaches standard error.
class StandardOutput {
 public:
  StandardOutput();
  ~StandardOutput();
  StandardOutput(const StandardOutput&) = delete;
  StandardOutput& operator=(const StandardOutput&) = delete;

  // Returns the error, if any.
  std::optional<host::Error> Write(const host::Bytes& bytes) const;

 private:
  int descriptor_;
};

// Whether a file can be written there: an error now is better than one after a PIN.
std::optional<host::Error> CheckWritable(const std::string& path);

// Writes a file whole or not at all; one that is there is replaced.
std::optional<host::Error> WriteFile(const std::string& path, const host::Bytes& bytes);

}  // namespace tokenhost
