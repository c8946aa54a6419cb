// The unified log, for machines without Apple's SDK. The formats are checked by the compiler.
#pragma once

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef uint8_t os_log_type_t;
#define OS_LOG_TYPE_DEFAULT ((os_log_type_t)0x00)
#define OS_LOG_TYPE_INFO ((os_log_type_t)0x01)
#define OS_LOG_TYPE_DEBUG ((os_log_type_t)0x02)
#define OS_LOG_TYPE_ERROR ((os_log_type_t)0x10)
#define OS_LOG_TYPE_FAULT ((os_log_type_t)0x11)

typedef struct os_log_s* os_log_t;
extern struct os_log_s _os_log_default;
#define OS_LOG_DEFAULT (&_os_log_default)

// The image that a line comes from; each linked image has its own.
extern void* __dso_handle;

// Says whether lines of a type are written at all.
bool os_log_type_enabled(os_log_t log, os_log_type_t type);

// Writes one line: `buffer` holds `size` bytes in the encoding of __builtin_os_log_format. The
// bytes that its pointers name are borrowed for the call.
void _os_log_impl(void* dso, os_log_t log, os_log_type_t type, const char* format, uint8_t* buffer,
                  uint32_t size);

#ifdef __APPLE__
// Not of the type cstring_literals, as in Apple's header: lld would put them among other strings.
// Unaligned, so that only texts lie there.
#define OS_LOG_STRING_SECTION __attribute__((section("__TEXT,__oslogstring"), used, aligned(1)))
#else
#define OS_LOG_STRING_SECTION
#endif

// The arguments are evaluated only when the type is enabled.
#define os_log_with_type(log, type, format, ...)                                                 \
  __extension__({                                                                                \
    os_log_t _log_object = (log);                                                                \
    os_log_type_t _log_type = (type);                                                            \
    if (os_log_type_enabled(_log_object, _log_type)) {                                           \
      OS_LOG_STRING_SECTION static const char _log_format[] = format;                            \
      uint8_t __attribute__((                                                                    \
          uninitialized,                                                                         \
          aligned(16))) _log_buffer[__builtin_os_log_format_buffer_size(format, ##__VA_ARGS__)]; \
      _os_log_impl((void*)&__dso_handle, _log_object, _log_type, _log_format,                    \
                   (uint8_t*)__builtin_os_log_format(_log_buffer, format, ##__VA_ARGS__),        \
                   (uint32_t)sizeof(_log_buffer));                                               \
    }                                                                                            \
  })

#define os_log(log, format, ...) os_log_with_type(log, OS_LOG_TYPE_DEFAULT, format, ##__VA_ARGS__)
#define os_log_error(log, format, ...) \
  os_log_with_type(log, OS_LOG_TYPE_ERROR, format, ##__VA_ARGS__)

#ifdef __cplusplus
}
#endif
