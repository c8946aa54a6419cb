// What a Mach-O library may do, for the tests of the loader: C functions that the tests call.
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <locale>
#include <mutex>
#include <stdexcept>
#include <string>
#include <system_error>

#define EXPORT extern "C" __attribute__((visibility("default")))

namespace {

int initialised = 0;
struct Initialiser {
  Initialiser() { ++initialised; }
} initialiser;

thread_local int counter = 40;

// Keeps the compiler from joining the frames that an exception is to pass.
__attribute__((noinline)) void Throw(const std::string& text) {
  throw std::runtime_error(text.c_str());
}
__attribute__((noinline)) size_t Middle(const std::string& text) {
  std::string copy = text + "!";
  Throw(copy);
  return copy.size();
}
__attribute__((noinline)) size_t Outer(const std::string& text) {
  const std::string copy = text + "?";
  return Middle(copy) + copy.size();
}

}  // namespace

EXPORT int Initialised() { return initialised; }

EXPORT int Count() { return ++counter; }

// Writes what the exception says that has passed two frames with objects in them.
EXPORT void Catch(const char* text, char* out, size_t size) {
  try {
    Outer(text);
  } catch (const std::exception& error) {
    strlcpy(out, error.what(), size);
  }
}

// macOS's number of the error with which a file cannot be opened.
EXPORT int OpenError(const char* path) { return open(path, O_RDONLY | O_NOFOLLOW) < 0 ? errno : 0; }

// Whether errno keeps what is written to it, and gets what a function finds.
EXPORT bool ErrnoIsKept() {
  errno = EDEADLK;
  if (errno != EDEADLK) return false;
  errno = 0;
  return strtoll("999999999999999999999999", nullptr, 10) > 0 && errno == ERANGE;
}

EXPORT void Message(int number, char* out, size_t size) {
  strlcpy(out, std::generic_category().message(number).c_str(), size);
}

EXPORT long long SizeOf(const char* path) {
  struct stat status;
  return stat(path, &status) == 0 && S_ISREG(status.st_mode) ? status.st_size : -1;
}

EXPORT bool IsWritten(const char* path) {
  const int file = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_EXCL | O_CLOEXEC, 0600);
  if (file < 0) return false;
  const bool written = write(file, "text", 4) == 4;
  close(file);
  return written;
}

EXPORT bool RoomIsZero() {
  void* const room = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANON, -1, 0);
  if (room == MAP_FAILED) return false;
  const bool zero = *static_cast<int*>(room) == 0;
  munmap(room, 4096);
  return zero;
}

EXPORT bool IsLetter(char c) { return std::isalpha(c, std::locale()); }

EXPORT int CountUnderLock() {
  static pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
  static std::mutex another;
  static int count = 0;
  const std::lock_guard lock(another);
  if (pthread_mutex_lock(&mutex) != 0) return -1;
  const int now = ++count;
  pthread_mutex_unlock(&mutex);
  return now;
}

// What a function of a library gives; -1 when it is not there.
EXPORT int Call(const char* library, const char* name) {
  void* const handle = dlopen(library, RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) return -1;
  const auto function = reinterpret_cast<int (*)()>(dlsym(handle, name));
  return function == nullptr ? -1 : function();
}

// Where this library says it lies.
EXPORT void OwnPath(char* out, size_t size) {
  Dl_info info;
  if (dladdr(reinterpret_cast<const void*>(&Initialised), &info) != 0) {
    strlcpy(out, info.dli_fname, size);
  }
}

EXPORT int LastSignal() {
  static volatile sig_atomic_t last = 0;
  struct sigaction action = {};
  action.sa_handler = [](int number) { last = number; };
  sigaction(SIGUSR1, &action, nullptr);
  raise(SIGUSR1);
  return last;
}
