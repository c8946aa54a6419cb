#include "platform/macho/image.h"

namespace macho {

const Section* Image::Find(std::string_view name) const {
  for (const Section& section : sections) {
    if (section.name == name) return &section;
  }
  return nullptr;
}

void* Image::Export(std::string_view name) const {
  if (const auto found = exports.find(name); found != exports.end()) return found->second;
  for (const Image* image : reexports) {
    if (void* address = image->Export(name)) return address;
  }
  return nullptr;
}

}  // namespace macho
