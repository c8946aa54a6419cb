#include "platform/macho/objc/runtime.h"

#include <dlfcn.h>

#include <string>

#include "platform/macho/image.h"

namespace macho::objc {
namespace {

template <typename F>
void Find(F& function, const char* name) {
  function = reinterpret_cast<F>(dlsym(RTLD_DEFAULT, name));
  if (function == nullptr) {
    throw LoadError(std::string("the program has no Objective-C runtime with ") + name);
  }
}

Runtime FindAll() {
  Runtime found = {};
  Find(found.add_variable, "class_addIvar");
  Find(found.add_method, "class_addMethod");
  Find(found.add_protocol, "class_addProtocol");
  Find(found.variable, "class_getInstanceVariable");
  Find(found.superclass, "class_getSuperclass");
  Find(found.offset, "ivar_getOffset");
  Find(found.allocate, "objc_allocateClassPair");
  Find(found.find_class, "objc_getClass");
  Find(found.find_protocol, "objc_getProtocol");
  Find(found.lookup, "objc_msg_lookup");
  Find(found.lookup_super, "objc_msg_lookup_super");
  Find(found.register_class, "objc_registerClassPair");
  Find(found.selector, "sel_registerName");
  Find(found.typed_selector, "sel_registerTypedName");
  Find(found.add_named_protocol, "__objc_protocols_add_protocol");
  return found;
}

}  // namespace

const Runtime& TheRuntime() {
  static const Runtime runtime = FindAll();
  return runtime;
}

}  // namespace macho::objc
