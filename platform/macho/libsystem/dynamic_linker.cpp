#include "platform/macho/libsystem/dynamic_linker.h"

#include <cstdint>
#include <string>

#include "platform/macho/libsystem/tables.h"
#include "platform/macho/loader.h"
#include "platform/macho/slice.h"

namespace macho::libsystem {
namespace {

// The C library's own functions, looked up before anything can fail: looking up forgets the error.
struct Real {
  template <typename F>
  static F Find(const char* name) {
    // By its version: looked up without, it would be found through this library.
    void* const found = dlvsym(RTLD_NEXT, name, "GLIBC_2.34");
    return reinterpret_cast<F>(found);
  }
  decltype(&dlopen) open = Find<decltype(&dlopen)>("dlopen");
  decltype(&dlclose) close = Find<decltype(&dlclose)>("dlclose");
  decltype(&dlsym) symbol = Find<decltype(&dlsym)>("dlsym");
  decltype(&dlerror) error = Find<decltype(&dlerror)>("dlerror");
  decltype(&dladdr) address = Find<decltype(&dladdr)>("dladdr");
};

const Real& TheReal() {
  static const Real real;
  return real;
}

thread_local std::string last_error;
thread_local bool failed = false;

void* Fail(const std::string& error) {
  last_error = error;
  failed = true;
  return nullptr;
}

int LinuxFlags(int macos_flags) {
  int flags = macos_flags & (RTLD_LAZY | RTLD_NOW);
  if ((macos_flags & 0x8) != 0) flags |= RTLD_GLOBAL;
  if ((macos_flags & 0x10) != 0) flags |= RTLD_NOLOAD;
  if ((macos_flags & 0x80) != 0) flags |= RTLD_NODELETE;
  return flags;
}

void* OpenForImage(const char* path, int flags) { return Open(path, LinuxFlags(flags)); }

void* SymbolForImage(void* handle, const char* name) {
  constexpr intptr_t kDefault = -2;
  constexpr intptr_t kNext = -1;
  const auto number = reinterpret_cast<intptr_t>(handle);
  if (number == kDefault) return Symbol(RTLD_DEFAULT, name);
  if (number == kNext) return Symbol(RTLD_NEXT, name);
  return Symbol(handle, name);
}

const StandIn kTable[] = {
    {"_dladdr", Address(AddressInfo)},
    {"_dlclose", Address(Close)},
    {"_dlerror", Address(LastError)},
    {"_dlopen", Address(OpenForImage)},
    {"_dlsym", Address(SymbolForImage)},
    {"dyld_stub_binder", Address(abort)},  // nothing is left to be bound at the first call
    {"__tlv_bootstrap", Address(abort)},   // every descriptor has another function by then
};

}  // namespace

void* Open(const char* path, int flags) {
  if (path == nullptr || !IsMachO(path)) return TheReal().open(path, flags);
  try {
    if ((flags & RTLD_NOLOAD) == 0) return const_cast<Image*>(Load(path));
    if (const Image* loaded = Loaded(path)) return const_cast<Image*>(loaded);
    return Fail(std::string(path) + " is not loaded");
  } catch (const LoadError& error) {
    return Fail(error.what());
  }
}

int Close(void* handle) { return ImageOfHandle(handle) != nullptr ? 0 : TheReal().close(handle); }

void* Symbol(void* handle, const char* name) {
  // At once: a sanitizer asks for these before memory can be taken.
  if (handle == RTLD_DEFAULT || handle == RTLD_NEXT) return TheReal().symbol(handle, name);
  const Image* const image = ImageOfHandle(handle);
  if (image == nullptr) return TheReal().symbol(handle, name);
  if (void* address = image->Export(std::string("_") + name)) return address;
  return Fail(image->path + ": symbol not found: " + name);
}

char* LastError() {
  if (!failed) return TheReal().error();
  failed = false;
  return last_error.data();
}

int AddressInfo(const void* address, Dl_info* info) {
  const Image* const image = ImageOfAddress(address);
  if (image == nullptr) return TheReal().address(address, info);
  *info = {image->path.c_str(), image->start, nullptr, nullptr};
  return 1;
}

std::span<const StandIn> DynamicLinker() { return kTable; }

}  // namespace macho::libsystem
