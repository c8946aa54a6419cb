#include "platform/macho/libsystem/files.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "platform/macho/libsystem/tables.h"

namespace macho::libsystem {
namespace {

struct Flag {
  int macos;
  int linux;
};
constexpr Flag kOpenFlags[] = {
    {0x4, O_NONBLOCK},   {0x8, O_APPEND},         {0x100, O_NOFOLLOW},
    {0x200, O_CREAT},    {0x400, O_TRUNC},        {0x800, O_EXCL},
    {0x20000, O_NOCTTY}, {0x100000, O_DIRECTORY}, {0x1000000, O_CLOEXEC},
};
constexpr int kAccessMode = 3;  // read, write, both: the same numbers

int MacosOpenFlags(int linux_flags) {
  int flags = linux_flags & kAccessMode;
  for (const Flag& flag : kOpenFlags) {
    if ((linux_flags & flag.linux) == flag.linux) flags |= flag.macos;
  }
  return flags;
}

}  // namespace

int OpenFile(const char* path, int flags, unsigned mode) {
  return open(path, LinuxOpenFlags(flags), mode);
}

// The commands of fcntl that are used; another one has other numbers or structures.
int Fcntl(int file, int command, uint64_t argument) {
  constexpr int kDuplicateCloseOnExec = 67;
  const int number = static_cast<int>(argument);
  switch (command) {
    case kDuplicateCloseOnExec:
      return fcntl(file, F_DUPFD_CLOEXEC, number);
    case F_DUPFD:
    case F_GETFD:
    case F_SETFD:
      return fcntl(file, command, number);
    case F_GETFL: {
      const int flags = fcntl(file, F_GETFL);
      return flags < 0 ? flags : MacosOpenFlags(flags);
    }
    case F_SETFL:
      return fcntl(file, F_SETFL, LinuxOpenFlags(number));
    default:
      fprintf(stderr, "macho: nothing stands for command %d of fcntl\n", command);
      abort();
  }
}

namespace {

// struct stat with inode numbers of 64 bits.
struct Stat {
  int32_t dev;
  uint16_t mode, nlink;
  uint64_t ino;
  uint32_t uid, gid;
  int32_t rdev, padding;
  timespec atime, mtime, ctime, birthtime;
  int64_t size, blocks;
  int32_t blksize;
  uint32_t flags, gen;
  int32_t spare;
  int64_t more_spare[2];
};
static_assert(sizeof(Stat) == 144);

int Give(int result, const struct stat& from, Stat* to) {
  if (result != 0) return result;
  *to = {};
  to->dev = static_cast<int32_t>(from.st_dev);
  to->mode = static_cast<uint16_t>(from.st_mode);
  to->nlink = static_cast<uint16_t>(from.st_nlink);
  to->ino = from.st_ino;
  to->uid = from.st_uid;
  to->gid = from.st_gid;
  to->rdev = static_cast<int32_t>(from.st_rdev);
  to->atime = from.st_atim;
  to->mtime = from.st_mtim;
  to->ctime = from.st_ctim;
  to->size = from.st_size;
  to->blocks = from.st_blocks;
  to->blksize = static_cast<int32_t>(from.st_blksize);
  return 0;
}

int StatOfPath(const char* path, Stat* out) {
  struct stat status = {};
  return Give(stat(path, &status), status, out);
}

int StatOfFile(int file, Stat* out) {
  struct stat status = {};
  return Give(fstat(file, &status), status, out);
}

void* Mmap(void* at, size_t size, int protection, int flags, int file, off_t offset) {
  constexpr int kAnonymous = 0x1000;
  int here = flags & (MAP_SHARED | MAP_PRIVATE | MAP_FIXED);
  if ((flags & kAnonymous) != 0) here |= MAP_ANONYMOUS;
  return mmap(at, size, protection, here, file, offset);
}

// Of bsd, which glibc has only from 2.38 on.
size_t Strlcpy(char* to, const char* from, size_t size) {
  const size_t length = strlen(from);
  if (size > 0) {
    const size_t copied = length < size ? length : size - 1;
    memcpy(to, from, copied);
    to[copied] = '\0';
  }
  return length;
}

void Bzero(void* start, size_t size) { memset(start, 0, size); }

uint64_t stack_guard = 0x00a5c3e1f2b49687;

const StandIn kTable[] = {
    {"___bzero", Address(Bzero)},
    {"_bzero", Address(Bzero)},
    {"___stack_chk_guard", &stack_guard},
    {"___stderrp", static_cast<void*>(&stderr)},
    {"___stdoutp", static_cast<void*>(&stdout)},
    {"_fcntl", Address(Fcntl)},
    {"_fstat", Address(StatOfFile)},
    {"_fstat$INODE64", Address(StatOfFile)},
    {"_mmap", Address(Mmap)},
    {"_open", Address(OpenFile)},
    {"_realpath$DARWIN_EXTSN", Address(realpath)},
    {"_stat", Address(StatOfPath)},
    {"_stat$INODE64", Address(StatOfPath)},
    {"_strlcpy", Address(Strlcpy)},
};

}  // namespace

int LinuxOpenFlags(int macos_flags) {
  int flags = macos_flags & kAccessMode;
  for (const Flag& flag : kOpenFlags) {
    if ((macos_flags & flag.macos) != 0) flags |= flag.linux;
  }
  return flags;
}

std::span<const StandIn> Files() { return kTable; }

}  // namespace macho::libsystem
