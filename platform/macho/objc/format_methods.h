// Methods with variable arguments, which Apple passes on the stack on arm64.
#pragma once

namespace macho::objc {

// The name of the method to send in the place of one that an image's code sends: a method of ours,
// which the class then has, for one with variable arguments.
const char* MethodToSend(const char* name);

}  // namespace macho::objc
