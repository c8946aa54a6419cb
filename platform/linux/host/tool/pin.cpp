#include "platform/linux/host/tool/pin.h"

#include <bsd/readpassphrase.h>
#include <fcntl.h>
#include <openssl/crypto.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <system_error>
#include <vector>

namespace tokenhost {
namespace {

using host::host_error;
using host::Result;
using host::Secret;

constexpr size_t kMaxPinSize = 1024;  // with the byte that ends it

// Takes the PIN out of a buffer and wipes the buffer.
Secret take(char* buffer, size_t buffer_size, size_t pin_size) {
  Secret pin(std::vector<char>(buffer, buffer + pin_size));
  OPENSSL_cleanse(buffer, buffer_size);
  return pin;
}

}  // namespace

Result<Secret> read_pin_file(const std::string& path) {
  const auto failure = [&path](int error) {
    return host_error("the PIN file " + path +
                      " cannot be read: " + std::generic_category().message(error));
  };
  const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor < 0) return failure(errno);
  char buffer[kMaxPinSize];
  size_t size = 0;
  ssize_t count = 0;
  do {
    count = ::read(descriptor, buffer + size, sizeof(buffer) - size);
    if (count > 0) size += static_cast<size_t>(count);
  } while (count > 0 || (count < 0 && errno == EINTR));
  const int error = count < 0 ? errno : 0;
  ::close(descriptor);
  if (error == 0 && size < sizeof(buffer)) {
    if (size > 0 && buffer[size - 1] == '\n') --size;
    if (size > 0 && buffer[size - 1] == '\r') --size;
    return take(buffer, sizeof(buffer), size);
  }
  OPENSSL_cleanse(buffer, sizeof(buffer));
  if (error != 0) return failure(error);
  return host_error("the PIN file " + path + " is too long for a PIN");
}

Result<Secret> ask_for_pin() {
  char buffer[kMaxPinSize];
  if (::readpassphrase("PIN: ", buffer, sizeof(buffer), RPP_REQUIRE_TTY) == nullptr) {
    return host_error("the PIN cannot be asked for without a terminal: use --pin-file");
  }
  return take(buffer, sizeof(buffer), std::strlen(buffer));
}

}  // namespace tokenhost
