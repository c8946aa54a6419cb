// The Objective-C runtime at hand, GCC's, as far as classes are registered with it. It is looked up
// in the process, since most programs have none.
#pragma once
#include <objc/message.h>
#include <objc/runtime.h>

namespace macho::objc {

struct Runtime {
  decltype(&::class_addIvar) add_variable;
  decltype(&::class_addMethod) add_method;
  decltype(&::class_addProtocol) add_protocol;
  decltype(&::class_getInstanceVariable) variable;
  decltype(&::class_getSuperclass) superclass;
  decltype(&::ivar_getOffset) offset;
  decltype(&::objc_allocateClassPair) allocate;
  decltype(&::objc_getClass) find_class;
  decltype(&::objc_getProtocol) find_protocol;
  decltype(&::objc_msg_lookup) lookup;
  decltype(&::objc_msg_lookup_super) lookup_super;
  decltype(&::objc_registerClassPair) register_class;
  decltype(&::sel_registerName) selector;
  decltype(&::sel_registerTypedName) typed_selector;
  void (*add_named_protocol)(const char*, void*);
};

// Throws LoadError where the program has no such runtime.
const Runtime& TheRuntime();

// What answers the messages to a class.
inline ::Class Metaclass(::Class cls) { return object_getClass(reinterpret_cast<id>(cls)); }

}  // namespace macho::objc
