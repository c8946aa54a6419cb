// Files and their paths as text: not every C++ library that modulecheck is built with has more.
#pragma once

#include <span>
#include <string>
#include <vector>

namespace kelvrin::modulecheck {

// Whether the path leads to anything, to a plain file. Links are followed.
bool Exists(const std::string& path);
bool IsPlainFile(const std::string& path);

// The path without links, "." and ".."; empty when it leads nowhere.
std::string RealPath(const std::string& path);

// The path from the root, without links but that of its own name, since what lies there may look at
// the name; as it is when it leads nowhere.
std::string AbsolutePath(const std::string& path);

// All bytes of a file; none when it cannot be read.
std::string ReadFile(const std::string& path);

// Reads until the room is full or there are no more; returns the number of bytes, or -1 and errno.
long Fill(int descriptor, std::span<char> room);

// A folder that nobody else may look into, in $TMPDIR. It goes with the object, with the files that
// were named by it.
class TemporaryFolder {
 public:
  // Throws Failure.
  TemporaryFolder();
  ~TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  // The path of a file in it.
  std::string File(const std::string& name);

 private:
  std::string path_;
  std::vector<std::string> files_;
};

}  // namespace kelvrin::modulecheck
