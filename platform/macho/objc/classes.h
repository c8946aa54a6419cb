// Makes an image's Objective-C classes known to the runtime at hand, and the image's references to
// classes, selectors and constant strings into that runtime's.
#pragma once
#include "platform/macho/image.h"

namespace macho {

// Does nothing for an image without Objective-C. Properties need nothing: their methods are in the
// lists, and the runtime keeps no list of them. Throws LoadError for what the runtime refuses.
void RegisterClasses(const Image& image);

}  // namespace macho
