// Lets exceptions pass through an image's functions. Apple's linker describes most frames in 32
// bits each, "compact unwind information"; the unwinders of Linux read DWARF's descriptions.
#pragma once
#include "platform/macho/image.h"

namespace macho {

// Describes the image's frames to the unwinders in this process; the image keeps what they get.
void RegisterUnwinding(Image* image);

}  // namespace macho
