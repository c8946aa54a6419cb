// What an image's code calls in registers of its own choosing; in assembler, one file a processor.
#pragma once
#include <cstdarg>

extern "C" {
// Where a thread-local variable lies: keeps every register but that of the result.
void macho_thread_local_thunk();
// Find a method and go on there with all arguments where they are.
void macho_send();
void macho_send_super();
#ifdef __aarch64__
// Take their variable arguments from the stack, where Apple's compilers put them.
void macho_printf();
void macho_fprintf();
void macho_snprintf();
void macho_open();
void macho_fcntl();
void macho_append_format();
void macho_string_with_format();
#endif
}

#ifdef __aarch64__
namespace macho {

// Variable arguments that all lie on the stack, from a place on.
inline va_list ArgumentsAt(void* stack) { return {stack, nullptr, nullptr, 0, 0}; }

}  // namespace macho
#endif
