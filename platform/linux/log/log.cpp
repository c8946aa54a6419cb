// The entry points that <os/log.h> declares.
#include <os/log.h>

#include <cerrno>

#include "platform/linux/log/decoder.h"
#include "platform/linux/log/delivery.h"

struct os_log_s {};
struct os_log_s _os_log_default;

bool os_log_type_enabled(os_log_t /*log*/, os_log_type_t type) { return oslog::is_enabled(type); }

void _os_log_impl(void* /*dso*/, os_log_t /*log*/, os_log_type_t type, const char* format,
                  uint8_t* buffer, uint32_t size) {
  const int error = errno;
  if (!oslog::has_listeners() || !oslog::is_enabled(type)) return;
  oslog::deliver(oslog::decode(type, format, buffer, size, oslog::object_describer(), error));
  errno = error;
}
