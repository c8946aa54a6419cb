#include "modulecheck/channel.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>

namespace kelvrin::modulecheck {

void Channel::Send(const nlohmann::json& message) const {
  // Texts are made printable where they are read; this is for what was forgotten.
  const auto replace = nlohmann::json::error_handler_t::replace;
  const std::string line = message.dump(-1, ' ', false, replace) + "\n";
  std::size_t sent = 0;
  while (sent < line.size()) {
    const ssize_t count = write(descriptor_, line.data() + sent, line.size() - sent);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) _exit(EXIT_FAILURE);
    sent += static_cast<std::size_t>(count);
  }
}

}  // namespace kelvrin::modulecheck
