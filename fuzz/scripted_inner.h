// A module that answers what the script says.
#ifndef KELVRIN_FUZZ_SCRIPTED_INNER_H_
#define KELVRIN_FUZZ_SCRIPTED_INNER_H_

#include <p11-kit/pkcs11.h>

namespace kelvrin::fuzz {

// Every entry is there. The module returns any result, length, count and handle; it writes no more
// than the room that it is offered.
CK_FUNCTION_LIST ScriptedInner();

}  // namespace kelvrin::fuzz

#endif  // KELVRIN_FUZZ_SCRIPTED_INNER_H_
