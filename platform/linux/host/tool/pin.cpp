#include "platform/linux/host/tool/pin.h"

#include <bsd/readpassphrase.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>

namespace tokenhost {
namespace {

using host::HostError;
using host::Result;
using host::Secret;

// Reads the file until its end or the end of the room. Returns errno, or 0.
int Read(int descriptor, Secret* pin) {
  size_t size = 0;
  ssize_t count = 0;
  do {
    count = ::read(descriptor, pin->room().data() + size, pin->room().size() - size);
    if (count > 0) size += static_cast<size_t>(count);
  } while (count > 0 || (count < 0 && errno == EINTR));
  pin->Resize(size);
  return count < 0 ? errno : 0;
}

}  // namespace

Result<Secret> ReadPinFile(const std::string& path) {
  const auto failure = [&path](const std::string& what) {
    return HostError("the PIN file " + path + " " + what);
  };
  const auto unreadable = [&failure](int error) {
    return failure("cannot be read: " + std::generic_category().message(error));
  };
  // Without waiting for somebody to write into a pipe.
  const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (descriptor < 0) return unreadable(errno);
  struct stat status = {};
  const bool regular = ::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
  Secret pin;
  const int error = regular ? Read(descriptor, &pin) : 0;
  ::close(descriptor);
  if (!regular) return failure("is no regular file; without one the PIN is asked for");
  if (error != 0) return unreadable(error);
  if (pin.bytes().size() == Secret::kRoom) return failure("is too long for a PIN");
  for (const char end : {'\n', '\r'}) {
    if (!pin.empty() && pin.bytes().back() == end) pin.Resize(pin.bytes().size() - 1);
  }
  if (std::ranges::find(pin.bytes(), '\n') != pin.bytes().end()) {
    return failure("has more than one line");
  }
  return pin;
}

Result<Secret> AskForPin() {
  Secret pin;
  if (::readpassphrase("PIN: ", pin.room().data(), pin.room().size(), RPP_REQUIRE_TTY) == nullptr) {
    return HostError("the PIN cannot be asked for without a terminal: use --pin-file");
  }
  pin.Resize(std::strlen(pin.room().data()));
  return pin;
}

}  // namespace tokenhost
