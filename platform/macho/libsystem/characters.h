// Classes of characters.
#pragma once
#include <cstdint>

namespace macho::libsystem {

// For each byte the classes that it belongs to, as macOS numbers them.
const uint32_t* CharacterClasses();

}  // namespace macho::libsystem
