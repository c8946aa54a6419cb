// Loads Mach-O files into this process, in place of macOS's dynamic linker.
#pragma once
#include "platform/macho/image.h"

namespace macho {

// Loads a file with the libraries beside it that it names, and runs its initialisers; a file that
// is loaded already, under whatever name, gives the same image. Throws LoadError.
const Image* Load(const std::string& path);

// The image that a file is loaded as; null when it is not.
const Image* Loaded(const std::string& path);

// The image behind a handle, which is its address; null for what is none of ours.
const Image* ImageOfHandle(const void* handle);

// The image in which an address lies; null when there is none.
const Image* ImageOfAddress(const void* address);

}  // namespace macho
