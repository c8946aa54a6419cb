// Constant strings of an image.
#pragma once
#include "platform/macho/image.h"

namespace macho::objc {

// Makes them constant strings of GNUstep, in place. Throws LoadError for one of an unknown kind.
void ConvertStrings(const Image& image);

}  // namespace macho::objc
