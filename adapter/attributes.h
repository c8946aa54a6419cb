// Reading attributes of the module's objects, with the answers that the extension can use.
#ifndef KELVRIN_ADAPTER_ATTRIBUTES_H_
#define KELVRIN_ADAPTER_ATTRIBUTES_H_

#include <p11-kit/pkcs11.h>

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

namespace kelvrin::adapter {

// C_GetAttributeValue for a caller's session on `slot`. Differs from the module's own answer in
// this: CKA_ALLOWED_MECHANISMS of a public key is the module's list when that has 1 to 20 entries,
// and otherwise what its key type can do and the slot offers; an EC public key neither encrypts nor
// wraps, and derives when the slot does; a length that is not true (none, or more than the room
// there was) is 0.
CK_RV GetAttributes(const CK_FUNCTION_LIST& inner, CK_SLOT_ID slot, CK_SESSION_HANDLE session,
                    CK_OBJECT_HANDLE object, std::span<CK_ATTRIBUTE> attributes);

// One attribute's bytes, read with `room` bytes of room; nothing when the module does not hand it
// out or it is longer.
std::optional<std::vector<CK_BYTE>> ReadAttribute(const CK_FUNCTION_LIST& inner,
                                                  CK_SESSION_HANDLE session,
                                                  CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type,
                                                  std::size_t room);

// One attribute that is a number, read with exactly a number's room: some modules refuse more.
std::optional<CK_ULONG> ReadNumber(const CK_FUNCTION_LIST& inner, CK_SESSION_HANDLE session,
                                   CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type);

}  // namespace kelvrin::adapter

#endif  // KELVRIN_ADAPTER_ATTRIBUTES_H_
