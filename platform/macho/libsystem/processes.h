// Starting programs of both kinds.
#pragma once
#include <string>
#include <vector>

namespace macho::libsystem {

// What is really executed for a program: machorun with the program behind it when that is a Mach-O
// file.
class Command {
 public:
  // The arguments' texts, which end with null, must live as long as this.
  Command(const char* path, char* const* arguments);

  const char* path() const { return path_; }
  char* const* arguments() const { return arguments_; }

 private:
  const char* path_;
  char* const* arguments_;
  std::vector<char*> own_arguments_;
};

}  // namespace macho::libsystem
