#include "platform/macho/objc/format_methods.h"

#include <cstring>

#include "platform/macho/entry_points.h"
#include "platform/macho/objc/runtime.h"

namespace macho::objc {
namespace {

// What the extension sends.
constexpr char kStringWithFormat[] = "stringWithFormat:";
constexpr char kAppendFormat[] = "appendFormat:";
constexpr char kOurStringWithFormat[] = "macho_stringWithFormat:";
constexpr char kOurAppendFormat[] = "macho_appendFormat:";

// Adds a method that takes a format and gives an object or nothing.
void Add(::Class to, const char* name, const char* types, void (*code)()) {
  const Runtime& runtime = TheRuntime();
  runtime.add_method(to, runtime.typed_selector(name, types), reinterpret_cast<IMP>(code), types);
}

::Class Find(const char* name) { return static_cast<::Class>(TheRuntime().find_class(name)); }

template <typename... Arguments>
id Send(id object, const char* name, Arguments... arguments) {
  const SEL selector = TheRuntime().selector(name);
  const auto method =
      reinterpret_cast<id (*)(id, SEL, Arguments...)>(TheRuntime().lookup(object, selector));
  return method(object, selector, arguments...);
}

}  // namespace

const char* MethodToSend(const char* name) {
  if (strcmp(name, kStringWithFormat) == 0) {
    Add(Metaclass(Find("NSString")), kOurStringWithFormat, "@@:@", macho_string_with_format);
    return kOurStringWithFormat;
  }
  if (strcmp(name, kAppendFormat) == 0) {
    Add(Find("NSMutableString"), kOurAppendFormat, "v@:@", macho_append_format);
    return kOurAppendFormat;
  }
  return name;
}

// Where the entry points go on.
extern "C" id macho_string_with_format_at(id cls, SEL, id format, void* stack) {
  const id string =
      Send(Send(cls, "alloc"), "initWithFormat:arguments:", format, ArgumentsAt(stack));
  return Send(string, "autorelease");
}

extern "C" void macho_append_format_at(id string, SEL, id format, void* stack) {
  const id text =
      macho_string_with_format_at(reinterpret_cast<id>(Find("NSString")), nullptr, format, stack);
  Send(string, "appendString:", text);
}

}  // namespace macho::objc
