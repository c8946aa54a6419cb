// Reads compact unwind information, the section __unwind_info.
#pragma once
#include <cstdint>
#include <vector>

#include "platform/macho/image.h"

namespace macho {

// How the frame of one function is laid out. Offsets count bytes from the image's start.
struct CompactFrame {
  uint32_t start;
  uint32_t end;
  uint32_t encoding;     // by the processor's rules
  uint32_t lsda;         // what the language needs to know; 0 for nothing
  uint32_t personality;  // of the pointer to the language's function; 0 for none
};

// The functions that the section lists, in order of their addresses.
std::vector<CompactFrame> ReadCompactFrames(const Section& section);

}  // namespace macho
