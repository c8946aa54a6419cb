#include "modulecheck/pin_file.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>
#ifdef __linux__
#include <sys/prctl.h>
#endif

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <system_error>

#include "modulecheck/descriptor.h"
#include "modulecheck/failure.h"

namespace kelvrin::modulecheck {
namespace {

// Bytes read into the room until it is full or there are no more, as a size; -1 and errno when that
// fails.
ssize_t Fill(int descriptor, std::span<char> room) {
  std::size_t size = 0;
  while (size < room.size()) {
    const ssize_t count = read(descriptor, room.data() + size, room.size() - size);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return -1;
    if (count == 0) break;
    size += static_cast<std::size_t>(count);
  }
  return static_cast<ssize_t>(size);
}

[[noreturn]] void Fail(const std::string& path, const std::string& why) {
  throw Failure("the PIN file " + path + " " + why);
}

}  // namespace

void ForbidCoreFiles() {
  const rlimit none = {0, 0};
  setrlimit(RLIMIT_CORE, &none);
}

void ForbidDumps() {
#ifdef __linux__
  prctl(PR_SET_DUMPABLE, 0);
#endif
}

void ReadPinFile(const std::string& path, Secret* pin) {
  const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  const ssize_t count = file.get() < 0 ? -1 : Fill(file.get(), pin->room());
  if (count < 0) Fail(path, "cannot be read: " + std::generic_category().message(errno));
  const auto read = pin->room().first(static_cast<std::size_t>(count));
  const auto end = std::find(read.begin(), read.end(), '\n');
  if (end == read.end() && read.size() == Secret::kRoom) Fail(path, "is too long for a PIN");
  auto size = static_cast<std::size_t>(end - read.begin());
  if (size > 0 && read[size - 1] == '\r') --size;
  if (size == 0) Fail(path, "has no PIN in its first line");
  pin->Resize(size);
}

void ReadPin(int descriptor, Secret* pin) {
  const ssize_t count = Fill(descriptor, pin->room());
  if (count < 0) throw Failure("the PIN did not arrive");
  pin->Resize(static_cast<std::size_t>(count));
}

}  // namespace kelvrin::modulecheck
