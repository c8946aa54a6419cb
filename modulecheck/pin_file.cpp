#include "modulecheck/pin_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "modulecheck/conclusion.h"
#include "modulecheck/descriptor.h"
#include "modulecheck/files.h"

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
  throw Failure("the PIN file " + path + " " + why, Conclusion::kWrongUsage);
}

}  // namespace

void ReadPinFile(const std::string& path, Secret* pin) {
  // A pipe would be waited for.
  const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (file.get() < 0) Fail(path, "cannot be read: " + std::generic_category().message(errno));
  if (!IsPlainFile(file.get())) Fail(path, "is no plain file");
  const ssize_t count = Fill(file.get(), pin->room());
  if (count < 0) Fail(path, "cannot be read: " + std::generic_category().message(errno));
  const auto text = pin->room().first(static_cast<std::size_t>(count));
  const auto end = std::ranges::find(text, '\n');
  if (end != text.end() && end + 1 != text.end()) Fail(path, "has more than one line");
  if (end == text.end() && text.size() == Secret::kRoom) Fail(path, "is too long for a PIN");
  auto size = static_cast<std::size_t>(end - text.begin());
  if (size > 0 && text[size - 1] == '\r') --size;
  if (size == 0) Fail(path, "has no PIN in it");
  pin->Resize(size);
}

void ReadPin(int descriptor, Secret* pin) {
  const ssize_t count = Fill(descriptor, pin->room());
  pin->Resize(count < 0 ? 0 : static_cast<std::size_t>(count));
}

}  // namespace kelvrin::modulecheck
