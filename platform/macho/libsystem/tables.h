// The functions of macOS's C library that are not Linux's: one table a subject.
#pragma once
#include <span>

#include "platform/macho/stand_ins.h"

namespace macho::libsystem {

std::span<const StandIn> Arm64();  // on arm64
std::span<const StandIn> Characters();
std::span<const StandIn> Cxx();
std::span<const StandIn> DynamicLinker();
std::span<const StandIn> Errors();
std::span<const StandIn> Files();
std::span<const StandIn> Log();
std::span<const StandIn> Processes();
std::span<const StandIn> Signals();
std::span<const StandIn> Threads();

// Whether a function or variable, without its underscore, means the same on both systems.
bool Agrees(std::string_view name);

}  // namespace macho::libsystem
