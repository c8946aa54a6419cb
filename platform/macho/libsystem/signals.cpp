#include "platform/macho/libsystem/signals.h"

#include <sys/types.h>

#include "platform/macho/libsystem/tables.h"

namespace macho::libsystem {
namespace {

struct Pair {
  int macos;
  int linux;
};
constexpr Pair kSignals[] = {
    {10, SIGBUS},  {12, SIGSYS},  {16, SIGURG}, {17, SIGSTOP}, {18, SIGTSTP},
    {19, SIGCONT}, {20, SIGCHLD}, {23, SIGIO},  {30, SIGUSR1}, {31, SIGUSR2},
};
constexpr Pair kActionFlags[] = {
    {0x1, SA_ONSTACK},   {0x2, SA_RESTART},  {0x4, static_cast<int>(SA_RESETHAND)},
    {0x8, SA_NOCLDSTOP}, {0x10, SA_NODEFER}, {0x20, SA_NOCLDWAIT},
    {0x40, SA_SIGINFO},
};

struct Action {
  void (*handler)(int);
  uint32_t mask;
  int flags;
};

int SetAction(int signal, const Action* action, Action* old) {
  struct sigaction now = {};
  struct sigaction before = {};
  if (action != nullptr) {
    now.sa_handler = action->handler;
    now.sa_mask = LinuxSignals(action->mask);
    for (const Pair& flag : kActionFlags) {
      if ((action->flags & flag.macos) != 0) now.sa_flags |= flag.linux;
    }
  }
  const int result = sigaction(LinuxSignal(signal), action != nullptr ? &now : nullptr, &before);
  if (result != 0 || old == nullptr) return result;
  *old = {before.sa_handler, 0, 0};
  for (const Pair& flag : kActionFlags) {
    if ((before.sa_flags & flag.linux) != 0) old->flags |= flag.macos;
  }
  for (int number = 1; number < 32; ++number) {
    if (sigismember(&before.sa_mask, LinuxSignal(number)) == 1) old->mask |= 1U << (number - 1);
  }
  return 0;
}

using Handler = void (*)(int);
Handler SetHandler(int number, Handler handler) { return signal(LinuxSignal(number), handler); }
int Raise(int number) { return raise(LinuxSignal(number)); }
int Kill(pid_t process, int number) { return kill(process, LinuxSignal(number)); }

const StandIn kTable[] = {
    {"_kill", Address(Kill)},
    {"_raise", Address(Raise)},
    {"_sigaction", Address(SetAction)},
    {"_signal", Address(SetHandler)},
};

}  // namespace

int LinuxSignal(int macos_number) {
  for (const Pair& pair : kSignals) {
    if (pair.macos == macos_number) return pair.linux;
  }
  return macos_number;
}

int MacosSignal(int linux_number) {
  for (const Pair& pair : kSignals) {
    if (pair.linux == linux_number) return pair.macos;
  }
  return linux_number;
}

sigset_t LinuxSignals(uint32_t macos_set) {
  sigset_t set;
  sigemptyset(&set);
  for (int number = 1; number < 32; ++number) {
    if ((macos_set & (1U << (number - 1))) != 0) sigaddset(&set, LinuxSignal(number));
  }
  return set;
}

std::span<const StandIn> Signals() { return kTable; }

}  // namespace macho::libsystem
