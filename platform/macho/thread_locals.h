// Thread-local variables of an image: each thread gets a copy of the image's values at first use.
#pragma once
#include "platform/macho/image.h"

namespace macho {

// Makes the image's descriptors of thread-local variables lead here.
void PrepareThreadLocals(const Image& image);

}  // namespace macho
