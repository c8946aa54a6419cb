// What Apple's compilers write of Objective-C classes into an image, for runtimes of version 2.
#pragma once
#include <cstdint>
#include <string>

#include "platform/macho/image.h"

namespace macho::objc {

struct Method {
  const char* name;
  const char* types;
  void* code;
};

struct Variable {
  int32_t* offset;  // where the image's code reads it
  const char* name;
  const char* type;
  uint32_t alignment;  // a power of two
  uint32_t size;       // bytes
};

// A list whose elements follow; `element_size` has flags in bits 31, 1 and 0.
template <typename T>
struct List {
  uint32_t element_size;
  uint32_t count;

  const T& operator[](uint32_t i) const {
    return *reinterpret_cast<const T*>(reinterpret_cast<const uint8_t*>(this + 1) +
                                       size_t{i} * (element_size & 0xfffcU));
  }
  bool HasRelativeEntries() const { return (element_size & 0x80000000U) != 0; }
};

struct ProtocolList;

struct Protocol {
  void* isa;
  const char* name;
  const ProtocolList* protocols;
  const List<Method>* methods[4];  // of instances, of the class; the same, optional
};

struct ProtocolList {
  uint64_t count;
  const Protocol* const* begin() const {
    return reinterpret_cast<const Protocol* const*>(this + 1);
  }
  const Protocol* const* end() const { return begin() + count; }
};

struct ClassData {
  uint32_t flags, start, size, reserved;
  const void* layout;
  const char* name;
  const List<Method>* methods;
  const ProtocolList* protocols;
  const List<Variable>* variables;
  const void *weak_layout, *properties;
};

struct Class {
  const Class* metaclass;
  void* superclass;
  void *cache, *vtable;
  const uint8_t* data;  // with flags in the low bits

  const ClassData& Data() const {
    return *reinterpret_cast<const ClassData*>(data - (reinterpret_cast<uintptr_t>(data) & 7));
  }
};

struct Category {
  const char* name;
  void* extended;
  const List<Method>*methods, *class_methods;
  const ProtocolList* protocols;
};

// A constant string.
struct String {
  void* isa;
  uint64_t flags;
  const void* text;
  uint64_t length;  // in units of the encoding
};
constexpr uint64_t kAscii = 0x7c8;
constexpr uint64_t kUtf16 = 0x7d0;

}  // namespace macho::objc
