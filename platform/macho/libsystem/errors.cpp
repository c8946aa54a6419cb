#include "platform/macho/libsystem/errors.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "platform/macho/libsystem/tables.h"

namespace macho::libsystem {
namespace {

struct Pair {
  int macos;
  int linux;
};

// Those that differ.
constexpr Pair kErrors[] = {
    {11, EDEADLK},      {35, EAGAIN},          {36, EINPROGRESS},  {37, EALREADY},
    {38, ENOTSOCK},     {39, EDESTADDRREQ},    {40, EMSGSIZE},     {41, EPROTOTYPE},
    {42, ENOPROTOOPT},  {43, EPROTONOSUPPORT}, {45, ENOTSUP},      {47, EAFNOSUPPORT},
    {48, EADDRINUSE},   {49, EADDRNOTAVAIL},   {50, ENETDOWN},     {51, ENETUNREACH},
    {53, ECONNABORTED}, {54, ECONNRESET},      {55, ENOBUFS},      {56, EISCONN},
    {57, ENOTCONN},     {60, ETIMEDOUT},       {61, ECONNREFUSED}, {62, ELOOP},
    {63, ENAMETOOLONG}, {65, EHOSTUNREACH},    {66, ENOTEMPTY},    {69, EDQUOT},
    {70, ESTALE},       {77, ENOLCK},          {78, ENOSYS},       {84, EOVERFLOW},
    {89, ECANCELED},    {90, EIDRM},           {91, ENOMSG},       {92, EILSEQ},
    {94, EBADMSG},      {100, EPROTO},         {101, ETIME},       {104, ENOTRECOVERABLE},
    {105, EOWNERDEAD},
};

// Stands in errno while the image's own variable holds the number.
constexpr int kTaken = 0x7d000000;
thread_local int image_errno;

// Where an image finds errno, to read or to set it. Only a function of Linux that fails afterwards
// changes the mark, and so tells that its number is newer.
int* Errno() {
  if (errno != kTaken) image_errno = MacosError(errno);
  errno = kTaken;
  return &image_errno;
}

void Perror(const char* text) {
  RestoreErrno();
  perror(text);
}

char* Strerror(int number) {
  return strerror(LinuxError(number));  // NOLINT(concurrency-mt-unsafe): as on macOS
}

const StandIn kTable[] = {
    {"___error", Address(Errno)},
    {"_perror", Address(Perror)},
    {"_strerror", Address(Strerror)},
};

}  // namespace

int MacosError(int linux_number) {
  for (const Pair& pair : kErrors) {
    if (pair.linux == linux_number) return pair.macos;
  }
  return linux_number;
}

int LinuxError(int macos_number) {
  for (const Pair& pair : kErrors) {
    if (pair.macos == macos_number) return pair.linux;
  }
  return macos_number;
}

void RestoreErrno() {
  if (errno == kTaken) errno = LinuxError(image_errno);
}

std::span<const StandIn> Errors() { return kTable; }

}  // namespace macho::libsystem
