// For tests of buffers that must be cleared: without dirt they may look so by luck.
#pragma once

namespace scripted {

// Leaves no zero bytes where the next calls have their local variables.
[[gnu::noinline]] inline void DirtyStack() {
  volatile char room[65536];
  for (volatile char& byte : room) byte = '?';
}

}  // namespace scripted
