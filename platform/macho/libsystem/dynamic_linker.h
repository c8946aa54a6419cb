// dlopen and its kin for both kinds of files.
#pragma once
#include <dlfcn.h>

namespace macho::libsystem {

// As the functions of the C library, with Linux's flags; a Mach-O file is loaded here, everything
// else goes there.
void* Open(const char* path, int flags);
int Close(void* handle);
void* Symbol(void* handle, const char* name);
char* LastError();
int AddressInfo(const void* address, Dl_info* info);

}  // namespace macho::libsystem
