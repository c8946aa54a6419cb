// Points an image's references at what they mean in this process.
#pragma once
#include "platform/macho/image.h"
#include "platform/macho/slice.h"

namespace macho {

// Moves the image's pointers into itself by its slide. Throws LoadError.
void Rebase(const Slice& slice, const Image& image);

// Binds each name to the library that the image names for it, lazy ones too, and only if that
// library exports it on macOS. `libraries` are the images among the dependencies, null for a
// library of the system. Throws LoadError, with a line that names symbol and library.
void Bind(const Slice& slice, const Image& image, const std::vector<const Image*>& libraries);

}  // namespace macho
