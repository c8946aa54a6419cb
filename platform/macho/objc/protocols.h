// Protocols that an image brings along.
#pragma once
#include "platform/macho/objc/metadata.h"

namespace macho::objc {

// The runtime's protocol of that name; made from the image's when there is none. It stays for good.
void* ProtocolLike(const Protocol& protocol);

}  // namespace macho::objc
