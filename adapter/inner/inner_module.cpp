#include "adapter/inner/inner_module.h"

#include <dlfcn.h>
#include <unistd.h>

#include <string>

#include "adapter/config/file_path.h"
#include "adapter/config/setup_error.h"
#include "adapter/inner/function_names.h"

namespace kelvrin::adapter {
namespace {

template <typename... Arguments>
CK_RV NotSupported(Arguments...) {
  return CKR_FUNCTION_NOT_SUPPORTED;
}

template <typename... Arguments>
void Complete(CK_RV (*&entry)(Arguments...), CK_RV (*offered)(Arguments...)) {
  entry = offered != nullptr ? offered : &NotSupported<Arguments...>;
}

[[noreturn]] void Fail(const Config& config, const std::string& why) {
  throw SetupError(CKR_FUNCTION_FAILED,
                   config.file + ":" + std::to_string(config.module_line) + ": module '" +
                       config.module + "' " + why +
                       "; name a PKCS#11 version 2 module that this system can load");
}

}  // namespace

CK_FUNCTION_LIST CompleteFunctionList(const CK_FUNCTION_LIST& list) {
  CK_FUNCTION_LIST complete = {};
  complete.version = list.version;
#define KELVRIN_COMPLETE(name) Complete(complete.name, list.name);
// A list of version 2.0 ends before this entry: reading it would read past the list.
#define KELVRIN_NEVER(name) Complete(complete.name, decltype(complete.name){nullptr});
  KELVRIN_FOR_EACH_FUNCTION(KELVRIN_COMPLETE, KELVRIN_NEVER)
#undef KELVRIN_NEVER
#undef KELVRIN_COMPLETE
  return complete;
}

CK_FUNCTION_LIST LoadInnerModule(const Config& config, const CK_FUNCTION_LIST* own) {
  // Opening a pipe might wait for ever. What is not there is the linker's to say.
  if (access(config.module.c_str(), F_OK) == 0 && !IsRegularFile(config.module)) {
    Fail(config, "is no regular file");
  }
  void* library = dlopen(config.module.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) {
    const char* why = dlerror();
    Fail(config, std::string("cannot be loaded (") + (why != nullptr ? why : "no reason") + ")");
  }
  const auto get_function_list =
      reinterpret_cast<CK_C_GetFunctionList>(dlsym(library, "C_GetFunctionList"));
  if (get_function_list == nullptr) Fail(config, "has no C_GetFunctionList");
  CK_FUNCTION_LIST_PTR list = nullptr;
  const CK_RV result = get_function_list(&list);
  if (result != CKR_OK || list == nullptr) {
    Fail(config, "hands out no function list (result " + std::to_string(result) + ")");
  }
  if (list == own) Fail(config, "is the adapter itself");
  // A list of version 3 begins with all entries of version 2.
  if (list->version.major < 2) {
    Fail(config, "is of PKCS#11 version " + std::to_string(list->version.major));
  }
  return CompleteFunctionList(*list);
}

}  // namespace kelvrin::adapter
