#include "platform/macho/libsystem/processes.h"

#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <cstdint>

#include "platform/macho/libsystem/errors.h"
#include "platform/macho/libsystem/files.h"
#include "platform/macho/libsystem/signals.h"
#include "platform/macho/libsystem/tables.h"
#include "platform/macho/slice.h"

namespace macho::libsystem {
namespace {

// A limit as macOS counts it, where no limit is another number.
int SetLimit(int resource, const rlimit* limit) {
  constexpr __rlimit_resource kResources[] = {
      RLIMIT_CPU, RLIMIT_FSIZE,   RLIMIT_DATA,  RLIMIT_STACK,  RLIMIT_CORE,
      RLIMIT_AS,  RLIMIT_MEMLOCK, RLIMIT_NPROC, RLIMIT_NOFILE,
  };
  constexpr rlim_t kNoLimit = INT64_MAX;
  rlimit here = *limit;
  if (here.rlim_cur == kNoLimit) here.rlim_cur = RLIM_INFINITY;
  if (here.rlim_max == kNoLimit) here.rlim_max = RLIM_INFINITY;
  return setrlimit(kResources[resource], &here);
}

// A child that a signal has ended tells macOS's number of it.
pid_t Wait(pid_t child, int* status, int options) {
  int here = 0;
  const pid_t result = waitpid(child, &here, options);
  if (result > 0 && status != nullptr) {
    *status = WIFSIGNALED(here) ? (here & ~0x7f) | MacosSignal(WTERMSIG(here)) : here;
  }
  return result;
}

// What macOS's functions keep in one pointer.
using Actions = posix_spawn_file_actions_t;
using Attributes = posix_spawnattr_t;

int InitActions(Actions** actions) { return posix_spawn_file_actions_init(*actions = new Actions); }
int DestroyActions(Actions** actions) {
  const int result = posix_spawn_file_actions_destroy(*actions);
  delete *actions;
  return result;
}
int AddDup2(Actions** actions, int from, int to) {
  return posix_spawn_file_actions_adddup2(*actions, from, to);
}
int AddOpen(Actions** actions, int file, const char* path, int flags, unsigned mode) {
  return posix_spawn_file_actions_addopen(*actions, file, path, LinuxOpenFlags(flags), mode);
}
int InitAttributes(Attributes** attributes) {
  return posix_spawnattr_init(*attributes = new Attributes);
}
int DestroyAttributes(Attributes** attributes) {
  const int result = posix_spawnattr_destroy(*attributes);
  delete *attributes;
  return result;
}
int SetFlags(Attributes** attributes, int16_t flags) {
  const int here = ((flags & 0x4) != 0 ? POSIX_SPAWN_SETSIGDEF : 0) |
                   ((flags & 0x8) != 0 ? POSIX_SPAWN_SETSIGMASK : 0);
  return posix_spawnattr_setflags(*attributes, static_cast<int16_t>(here));
}
int SetDefaultSignals(Attributes** attributes, const uint32_t* signals) {
  const sigset_t set = LinuxSignals(*signals);
  return posix_spawnattr_setsigdefault(*attributes, &set);
}

int Spawn(pid_t* child, const char* path, Actions** actions, Attributes** attributes,
          char* const* arguments, char* const* environment) {
  const Command command(path, arguments);
  return MacosError(posix_spawn(child, command.path(), actions != nullptr ? *actions : nullptr,
                                attributes != nullptr ? *attributes : nullptr, command.arguments(),
                                environment));
}

const StandIn kTable[] = {
    {"_posix_spawn", Address(Spawn)},
    {"_posix_spawn_file_actions_adddup2", Address(AddDup2)},
    {"_posix_spawn_file_actions_addopen", Address(AddOpen)},
    {"_posix_spawn_file_actions_destroy", Address(DestroyActions)},
    {"_posix_spawn_file_actions_init", Address(InitActions)},
    {"_posix_spawnattr_destroy", Address(DestroyAttributes)},
    {"_posix_spawnattr_init", Address(InitAttributes)},
    {"_posix_spawnattr_setflags", Address(SetFlags)},
    {"_posix_spawnattr_setsigdefault", Address(SetDefaultSignals)},
    {"_setrlimit", Address(SetLimit)},
    {"_waitpid", Address(Wait)},
};

}  // namespace

Command::Command(const char* path, char* const* arguments) : path_(path), arguments_(arguments) {
  if (!IsMachO(path)) return;
  static char machorun[] = KELVRIN_MACHORUN;
  own_arguments_ = {machorun, const_cast<char*>(path)};
  // The first is the program's name; the null at the end comes along.
  for (size_t i = 1; i == 1 || arguments[i - 1] != nullptr; ++i) {
    own_arguments_.push_back(arguments[i]);
  }
  path_ = machorun;
  arguments_ = own_arguments_.data();
}

std::span<const StandIn> Processes() { return kTable; }

}  // namespace macho::libsystem
