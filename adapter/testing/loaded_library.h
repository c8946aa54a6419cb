// A PKCS#11 library opened as an application opens it.
#pragma once

#include <dlfcn.h>
#include <p11-kit/pkcs11.h>

#include <filesystem>
#include <stdexcept>

namespace kelvrin::adapter {

// Opens the library and gets its function list; throws std::runtime_error when that fails. Closing
// is left to the end of the process, as the order of module and test is not ours to choose.
inline CK_FUNCTION_LIST* LoadLibrary(const std::filesystem::path& path) {
  void* library = dlopen(path.c_str(), RTLD_LAZY);
  if (library == nullptr) throw std::runtime_error(dlerror());
  const auto get = reinterpret_cast<CK_C_GetFunctionList>(dlsym(library, "C_GetFunctionList"));
  CK_FUNCTION_LIST* list = nullptr;
  if (get == nullptr || get(&list) != CKR_OK) throw std::runtime_error("no function list");
  return list;
}

}  // namespace kelvrin::adapter
