#include "platform/macho/objc/functions.h"

#include <cstdio>
#include <cstdlib>
#include <string>

#include "platform/macho/entry_points.h"
#include "platform/macho/objc/runtime.h"

namespace macho::objc {
namespace {

id Send(id object, const char* name) {
  if (object == nil) return nil;
  const SEL selector = TheRuntime().selector(name);
  return TheRuntime().lookup(object, selector)(object, selector);
}

id Alloc(id cls) { return Send(cls, "alloc"); }
id AllocInit(id cls) { return Send(Send(cls, "alloc"), "init"); }
id Retain(id object) { return Send(object, "retain"); }
void Release(id object) { Send(object, "release"); }
id Autorelease(id object) { return Send(object, "autorelease"); }
id PushPool() {
  return AllocInit(reinterpret_cast<id>(TheRuntime().find_class("NSAutoreleasePool")));
}
void PopPool(id pool) { Send(pool, "drain"); }

// An object property of a class of ours; none is atomic.
id GetProperty(id object, SEL, ptrdiff_t offset, BOOL) {
  return *reinterpret_cast<id*>(reinterpret_cast<char*>(object) + offset);
}

// A collection was changed while it was gone through.
[[noreturn]] void EnumerationMutation(id) {
  fputs("macho: a collection was changed while it was gone through\n", stderr);
  abort();
}

// Only their addresses are used.
char empty_cache[64];
char string_class[64];

const StandIn kTable[] = {
    {"__objc_empty_cache", empty_cache},
    {"___CFConstantStringClassReference", string_class},
    {"_objc_alloc", Address(Alloc)},
    {"_objc_alloc_init", Address(AllocInit)},
    {"_objc_autorelease", Address(Autorelease)},
    {"_objc_autoreleasePoolPop", Address(PopPool)},
    {"_objc_autoreleasePoolPush", Address(PushPool)},
    {"_objc_enumerationMutation", Address(EnumerationMutation)},
    {"_objc_getProperty", Address(GetProperty)},
    {"_objc_msgSend", Address(macho_send)},
    {"_objc_msgSendSuper2", Address(macho_send_super)},
    {"_objc_release", Address(Release)},
    {"_objc_retain", Address(Retain)},
};

}  // namespace

std::span<const StandIn> Functions() { return kTable; }

void* FindClass(std::string_view symbol) {
  constexpr std::string_view kClass = "_OBJC_CLASS_$_";
  constexpr std::string_view kMetaclass = "_OBJC_METACLASS_$_";
  const bool is_class = symbol.starts_with(kClass);
  if (!is_class && !symbol.starts_with(kMetaclass)) return nullptr;
  const std::string name(symbol.substr((is_class ? kClass : kMetaclass).size()));
  auto* const found = static_cast<::Class>(TheRuntime().find_class(name.c_str()));
  return found == nullptr || is_class ? found : Metaclass(found);
}

// The code for a message; where macho_send goes on.
extern "C" IMP macho_find_method(id receiver, SEL selector) {
  return TheRuntime().lookup(receiver, selector);
}

// The same from the superclass on. `from` names the class whose method sends, not its superclass.
extern "C" IMP macho_find_super_method(const objc_super* from, SEL selector) {
  objc_super target = {from->self, TheRuntime().superclass(from->super_class)};
  return TheRuntime().lookup_super(&target, selector);
}

}  // namespace macho::objc
