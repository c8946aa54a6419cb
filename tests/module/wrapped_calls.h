// Calls of the code under test to the C library, counted and made to fail. Linking the target
// wrapped_calls puts them in the way of every call that the test executable itself makes.
#pragma once

#include <stddef.h>

namespace wrapped {

struct Allocation {
  void* address;
  size_t count;  // calloc's two arguments
  size_t size;
  bool freed;
  unsigned int start;  // its first bytes as they were when it was freed
};

struct Calls {
  size_t fail_malloc = 0;  // this many calls of malloc from now on fail with ENOMEM
  // calloc
  size_t fail_calloc = 0;             // this many calls from now on fail with ENOMEM
  bool empty_calloc_is_null = false;  // calloc of 0 entries gives null, as the standard allows
  Allocation callocs[64] = {};        // the first ones since Reset
  size_t calloc_count = 0;
  // malloc, calloc, realloc and operator new together, while `counting`
  bool counting = false;
  size_t allocations = 0;
  // Dynamic linker
  size_t dlopen_count = 0;
  int dlopen_mode = -1;
  void* dlopen_result = nullptr;
  size_t dlsym_count = 0;
  const char* dlsym_name = nullptr;
  void* dlsym_library = nullptr;
  size_t dlclose_count = 0;
  void* dlclose_library = nullptr;
  bool fake_dlclose = false;  // dlclose returns dlclose_result and closes nothing
  int dlclose_result = 0;
  // Names
  size_t result_name_count = 0;  // CKR2Str
  size_t strlcpy_size = 0;       // the size argument of the last call
};

// The calls since the last Reset; what tests set stays in force until then.
Calls& calls();
void Reset();

}  // namespace wrapped
