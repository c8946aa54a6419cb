// Mutexes. One that is initialised statically begins with a signature on macOS, and is all zero
// here.
#include <pthread.h>

#include <cstdint>

#include "platform/macho/libsystem/errors.h"
#include "platform/macho/libsystem/tables.h"

namespace macho::libsystem {
namespace {

constexpr uint64_t kStaticMutex = 0x32AAABA7;

// A mutex as Linux wants it, whoever meets it first.
pthread_mutex_t* Ready(void* mutex) {
  uint64_t expected = kStaticMutex;
  __atomic_compare_exchange_n(static_cast<uint64_t*>(mutex), &expected, 0, false, __ATOMIC_ACQ_REL,
                              __ATOMIC_ACQUIRE);
  return static_cast<pthread_mutex_t*>(mutex);
}

int Lock(void* mutex) { return MacosError(pthread_mutex_lock(Ready(mutex))); }
int Unlock(void* mutex) { return MacosError(pthread_mutex_unlock(Ready(mutex))); }

// std::mutex, whose first and only member is one of those.
void LockOfCxx(void* mutex) { pthread_mutex_lock(Ready(mutex)); }
void UnlockOfCxx(void* mutex) { pthread_mutex_unlock(Ready(mutex)); }

const StandIn kTable[] = {
    {"__ZNSt3__15mutex4lockEv", Address(LockOfCxx)},
    {"__ZNSt3__15mutex6unlockEv", Address(UnlockOfCxx)},
    {"_pthread_mutex_lock", Address(Lock)},
    {"_pthread_mutex_unlock", Address(Unlock)},
};

}  // namespace

std::span<const StandIn> Threads() { return kTable; }

}  // namespace macho::libsystem
