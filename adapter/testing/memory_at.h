// Looking at memory that may be gone.
#pragma once

#include <unistd.h>

#include <array>
#include <stdexcept>
#include <string>

namespace kelvrin::adapter {

// Whether there is memory at `place`, and it holds these bytes.
inline bool MemoryHolds(const void* place, const std::string& bytes) {
  std::array<int, 2> ends = {};
  if (pipe(ends.data()) != 0) throw std::runtime_error("no pipe");
  std::string read(bytes.size(), '\0');
  // The system refuses to write from where nothing is mapped.
  const auto size = static_cast<ssize_t>(bytes.size());
  const bool is_there = write(ends[1], place, bytes.size()) == size &&
                        ::read(ends[0], read.data(), read.size()) == size;
  close(ends[0]);
  close(ends[1]);
  return is_there && read == bytes;
}

}  // namespace kelvrin::adapter
