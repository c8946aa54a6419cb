// The scripted module as a loadable library: what C_GetFunctionList hands out is the list of the
// one module that the library holds, and the test reaches that module through the control.
#include "tests/module/scripted_module.h"

#define SCRIPTED_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

scripted::ScriptedModule module;

}  // namespace

SCRIPTED_EXPORT CK_RV C_GetFunctionList(CK_FUNCTION_LIST** list) {
  return module.functions()->C_GetFunctionList(list);
}

SCRIPTED_EXPORT scripted::ScriptedModule* scripted_module_control() { return &module; }
