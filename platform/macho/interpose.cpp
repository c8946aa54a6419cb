// Preloaded, this serves a program of Linux that opens or starts Mach-O files: its own calls of
// these functions come here.
#include <dlfcn.h>
#include <spawn.h>
#include <unistd.h>

#include <string_view>

#include "platform/macho/libsystem/dynamic_linker.h"
#include "platform/macho/libsystem/processes.h"
#include "platform/macho/stand_ins.h"

namespace libsystem = macho::libsystem;

namespace {

// The C library's function of a name, of which there is one version.
template <typename F>
F Next(const char* name) {
  return reinterpret_cast<F>(libsystem::Symbol(RTLD_NEXT, name));
}

int Execute(const char* path, char* const* arguments, char* const* environment) {
  static const auto next = Next<decltype(&execve)>("execve");
  const libsystem::Command command(path, arguments);
  return next(command.path(), command.arguments(), environment);
}

int ExecuteHere(const char* path, char* const* arguments) {
  return Execute(path, arguments, environ);
}

int Spawn(pid_t* child, const char* path, const posix_spawn_file_actions_t* actions,
          const posix_spawnattr_t* attributes, char* const* arguments, char* const* environment) {
  static const auto next = Next<decltype(&posix_spawn)>("posix_spawn");
  const libsystem::Command command(path, arguments);
  return next(child, command.path(), actions, attributes, command.arguments(), environment);
}

// A sanitizer in the program has functions of these names too and asks for the next ones, which are
// ours; the C library would look behind this library.
void* Symbol(void* handle, const char* name) {
  static const macho::StandIn kOwn[] = {
      {"dladdr", macho::Address(libsystem::AddressInfo)},
      {"dlclose", macho::Address(libsystem::Close)},
      {"dlerror", macho::Address(libsystem::LastError)},
      {"dlopen", macho::Address(libsystem::Open)},
      {"execv", macho::Address(ExecuteHere)},
      {"execve", macho::Address(Execute)},
      {"posix_spawn", macho::Address(Spawn)},
  };
  for (const macho::StandIn& own : kOwn) {
    if (handle == RTLD_NEXT && std::string_view(own.symbol) == name) return own.address;
  }
  return libsystem::Symbol(handle, name);
}

}  // namespace

extern "C" {

void* dlopen(const char* path, int flags) { return libsystem::Open(path, flags); }
int dlclose(void* handle) { return libsystem::Close(handle); }
void* dlsym(void* handle, const char* name) { return Symbol(handle, name); }
char* dlerror() { return libsystem::LastError(); }
int dladdr(const void* address, Dl_info* info) { return libsystem::AddressInfo(address, info); }

int execve(const char* path, char* const* arguments, char* const* environment) {
  return Execute(path, arguments, environment);
}

int execv(const char* path, char* const* arguments) { return ExecuteHere(path, arguments); }

int posix_spawn(pid_t* child, const char* path, const posix_spawn_file_actions_t* actions,
                const posix_spawnattr_t* attributes, char* const* arguments,
                char* const* environment) {
  return Spawn(child, path, actions, attributes, arguments, environment);
}

}  // extern "C"
