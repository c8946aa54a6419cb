// The functions of Apple's runtime that the compiler calls.
#pragma once
#include <span>
#include <string_view>

#include "platform/macho/stand_ins.h"

namespace macho::objc {

std::span<const StandIn> Functions();

// The class or metaclass that a symbol names; null for any other symbol, and for a class that the
// program has not.
void* FindClass(std::string_view symbol);

}  // namespace macho::objc
