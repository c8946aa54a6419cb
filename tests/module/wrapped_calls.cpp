// Built without sanitizers: their runtime makes some of these calls before it is ready itself.
#include "tests/module/wrapped_calls.h"

#include <errno.h>

#include <algorithm>
#include <cstring>

namespace {

wrapped::Calls state;

void CountAllocation() {
  if (state.counting) ++state.allocations;
}

void NoteCalloc(void* address, size_t count, size_t size) {
  constexpr size_t kRoom = sizeof state.callocs / sizeof state.callocs[0];
  if (state.calloc_count < kRoom) {
    state.callocs[state.calloc_count] = {address, count, size, false, 0};
  }
  ++state.calloc_count;
}

void NoteFree(const void* address) {
  for (wrapped::Allocation& allocation : state.callocs) {
    if (address == nullptr || allocation.address != address) continue;
    allocation.freed = true;
    const size_t kept = std::min(sizeof(allocation.start), allocation.count * allocation.size);
    std::memcpy(&allocation.start, address, kept);
  }
}

}  // namespace

namespace wrapped {

Calls& calls() { return state; }
void Reset() { state = Calls(); }

}  // namespace wrapped

// The linker gives these names to what --wrap redirects.
extern "C" {

void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);
void* __real_realloc(void* address, size_t size);
void __real_free(void* address);
void* __real__Znwm(size_t size);
void* __real__Znam(size_t size);
void* __real_dlopen(const char* path, int mode);
void* __real_dlsym(void* library, const char* symbol);
int __real_dlclose(void* library);
const char* __real__Z7CKR2Strm(unsigned long rv);
size_t __real_strlcpy(char* destination, const char* source, size_t size);

void* __wrap_malloc(size_t size) {
  CountAllocation();
  if (state.fail_malloc > 0) {
    --state.fail_malloc;
    errno = ENOMEM;
    return nullptr;
  }
  return __real_malloc(size);
}

void* __wrap_calloc(size_t count, size_t size) {
  CountAllocation();
  void* address = nullptr;
  if (state.fail_calloc > 0) {
    --state.fail_calloc;
    errno = ENOMEM;
  } else if (count > 0 || !state.empty_calloc_is_null) {
    address = __real_calloc(count, size);
  }
  NoteCalloc(address, count, size);
  return address;
}

void* __wrap_realloc(void* address, size_t size) {
  CountAllocation();
  return __real_realloc(address, size);
}

void __wrap_free(void* address) {
  NoteFree(address);
  __real_free(address);
}

void* __wrap__Znwm(size_t size) {
  CountAllocation();
  return __real__Znwm(size);
}

void* __wrap__Znam(size_t size) {
  CountAllocation();
  return __real__Znam(size);
}

void* __wrap_dlopen(const char* path, int mode) {
  ++state.dlopen_count;
  state.dlopen_mode = mode;
  state.dlopen_result = __real_dlopen(path, mode);
  return state.dlopen_result;
}

void* __wrap_dlsym(void* library, const char* symbol) {
  ++state.dlsym_count;
  state.dlsym_library = library;
  state.dlsym_name = symbol;
  return __real_dlsym(library, symbol);
}

int __wrap_dlclose(void* library) {
  ++state.dlclose_count;
  state.dlclose_library = library;
  return state.fake_dlclose ? state.dlclose_result : __real_dlclose(library);
}

const char* __wrap__Z7CKR2Strm(unsigned long rv) {
  ++state.result_name_count;
  return __real__Z7CKR2Strm(rv);
}

size_t __wrap_strlcpy(char* destination, const char* source, size_t size) {
  state.strlcpy_size = size;
  return __real_strlcpy(destination, source, size);
}

}  // extern "C"
