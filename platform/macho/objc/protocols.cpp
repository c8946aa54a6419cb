#include "platform/macho/objc/protocols.h"

#include <cstdlib>
#include <vector>

#include "platform/macho/objc/runtime.h"

namespace macho::objc {
namespace {

// GCC's runtime makes no protocols while the program runs; these are what its compiler writes.
struct GccMethods {
  int count;
  struct {
    SEL selector;
    const char* types;
  } list[];
};
struct GccProtocols {
  GccProtocols* next;
  size_t count;
  void* list[];
};
struct GccProtocol {
  ::Class isa;
  const char* name;
  GccProtocols* protocols;
  GccMethods* methods[2];  // of instances, of the class
};

// Room for a structure with so many bytes behind it, all zero.
template <typename T>
T* Allocate(size_t bytes_behind) {
  void* const room = calloc(1, sizeof(T) + bytes_behind);
  if (room == nullptr) abort();
  return static_cast<T*>(room);
}

// Required and optional methods in one list, as GCC has them.
GccMethods* Join(const List<Method>* required, const List<Method>* optional) {
  const Runtime& runtime = TheRuntime();
  std::vector<const Method*> methods;
  for (const List<Method>* list : {required, optional}) {
    for (uint32_t i = 0; list != nullptr && i < list->count; ++i) methods.push_back(&(*list)[i]);
  }
  auto* const made = Allocate<GccMethods>(methods.size() * sizeof(GccMethods::list[0]));
  for (const Method* method : methods) {
    made->list[made->count].selector = runtime.typed_selector(method->name, method->types);
    made->list[made->count++].types = method->types;
  }
  return made;
}

}  // namespace

void* ProtocolLike(const Protocol& protocol) {
  const Runtime& runtime = TheRuntime();
  if (void* known = runtime.find_protocol(protocol.name)) return known;
  auto* const made = Allocate<GccProtocol>(0);
  made->isa = static_cast<::Class>(runtime.find_class("Protocol"));
  made->name = protocol.name;
  if (protocol.protocols != nullptr && protocol.protocols->count > 0) {
    made->protocols = Allocate<GccProtocols>(protocol.protocols->count * sizeof(void*));
    for (const Protocol* each : *protocol.protocols) {
      made->protocols->list[made->protocols->count++] = ProtocolLike(*each);
    }
  }
  for (int of_class : {0, 1}) {
    made->methods[of_class] = Join(protocol.methods[of_class], protocol.methods[of_class + 2]);
  }
  runtime.add_named_protocol(protocol.name, made);
  return made;
}

}  // namespace macho::objc
