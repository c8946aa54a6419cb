// Preloaded, this serves a program of Linux that opens or starts Mach-O files: its own calls of
// these functions come here.
#include <dlfcn.h>
#include <spawn.h>
#include <unistd.h>

#include "platform/macho/libsystem/dynamic_linker.h"
#include "platform/macho/libsystem/processes.h"

namespace libsystem = macho::libsystem;

namespace {

// The C library's function of a name, of which there is one version.
template <typename F>
F Next(const char* name) {
  return reinterpret_cast<F>(libsystem::Symbol(RTLD_NEXT, name));
}

}  // namespace

extern "C" {

void* dlopen(const char* path, int flags) { return libsystem::Open(path, flags); }
int dlclose(void* handle) { return libsystem::Close(handle); }
void* dlsym(void* handle, const char* name) { return libsystem::Symbol(handle, name); }
char* dlerror() { return libsystem::LastError(); }
int dladdr(const void* address, Dl_info* info) { return libsystem::AddressInfo(address, info); }

int execve(const char* path, char* const* arguments, char* const* environment) {
  static const auto next = Next<decltype(&execve)>("execve");
  const libsystem::Command command(path, arguments);
  return next(command.path(), command.arguments(), environment);
}

int execv(const char* path, char* const* arguments) { return execve(path, arguments, environ); }

int posix_spawn(pid_t* child, const char* path, const posix_spawn_file_actions_t* actions,
                const posix_spawnattr_t* attributes, char* const* arguments,
                char* const* environment) {
  static const auto next = Next<decltype(&posix_spawn)>("posix_spawn");
  const libsystem::Command command(path, arguments);
  return next(child, command.path(), actions, attributes, command.arguments(), environment);
}

}  // extern "C"
