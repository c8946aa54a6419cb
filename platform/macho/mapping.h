// Brings an image's segments into memory.
#pragma once
#include "platform/macho/image.h"
#include "platform/macho/slice.h"

namespace macho {

// Maps the segments, writable for now, one after the other as the file wants them, and fills in
// where the image and its sections lie and what it exports. Throws LoadError.
void MapSegments(const Slice& slice, Image* image);

// Gives each segment the protection that the file asks for.
void ProtectSegments(const Slice& slice, const Image& image);

}  // namespace macho
