#include "platform/macho/thread_locals.h"

#include <llvm/BinaryFormat/MachO.h>
#include <pthread.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "platform/macho/entry_points.h"

namespace macho {
namespace {

// What a thread's copy is made from; it lives as long as the image.
struct Template {
  const uint8_t* start;
  size_t size;  // bytes
  pthread_key_t key;
};

// A variable as the image describes it: whom to ask, about which template, at which place in it.
struct Descriptor {
  void (*thunk)();
  const Template* values;
  uint64_t offset;  // bytes
};

Template* TemplateOf(const Image& image) {
  const uint8_t* low = nullptr;
  const uint8_t* high = nullptr;
  for (const Section& section : image.sections) {
    if (section.type != llvm::MachO::S_THREAD_LOCAL_REGULAR &&
        section.type != llvm::MachO::S_THREAD_LOCAL_ZEROFILL) {
      continue;
    }
    low = low == nullptr ? section.start : std::min<const uint8_t*>(low, section.start);
    high = std::max<const uint8_t*>(high, section.start + section.size);
  }
  auto* const values = new Template{low, static_cast<size_t>(high - low), 0};
  if (pthread_key_create(&values->key, free) != 0) {
    throw LoadError(image.path + ": no key left for thread-local variables");
  }
  return values;
}

}  // namespace

void PrepareThreadLocals(const Image& image) {
  const Template* values = nullptr;
  for (const Section& section : image.sections) {
    if (section.type != llvm::MachO::S_THREAD_LOCAL_VARIABLES) continue;
    if (values == nullptr) values = TemplateOf(image);
    auto* const first = reinterpret_cast<Descriptor*>(section.start);
    const size_t count = section.size / sizeof(Descriptor);
    for (size_t i = 0; i < count; ++i) {
      first[i].thunk = macho_thread_local_thunk;
      first[i].values = values;
    }
  }
}

// Where the calling thread has its copy of a variable.
extern "C" void* macho_thread_local_address(const Descriptor* variable) {
  const Template& values = *variable->values;
  void* block = pthread_getspecific(values.key);
  if (block == nullptr) {
    block = malloc(values.size);
    if (block == nullptr) abort();
    memcpy(block, values.start, values.size);
    pthread_setspecific(values.key, block);
  }
  return static_cast<uint8_t*>(block) + variable->offset;
}

}  // namespace macho
