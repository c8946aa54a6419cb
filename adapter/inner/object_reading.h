// Reading single attributes of the module's objects.
#pragma once

#include <p11-kit/pkcs11.h>

#include <cstddef>
#include <optional>

#include "encoding/bytes.h"

namespace kelvrin::adapter {

using encoding::Bytes;
using encoding::ByteView;

// Room for a CKA_ID or a label, and for a certificate: more than any token's has.
inline constexpr std::size_t kMaxId = 4096;
inline constexpr std::size_t kMaxCertificateRead = std::size_t{64} * 1024;

// One attribute's bytes, read with `room` bytes of room; nothing when the module does not hand it
// out or it is longer.
std::optional<Bytes> ReadAttribute(const CK_FUNCTION_LIST& inner, CK_SESSION_HANDLE session,
                                   CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type,
                                   std::size_t room);

// One attribute that is a number, read with exactly a number's room: some modules refuse more.
std::optional<CK_ULONG> ReadNumber(const CK_FUNCTION_LIST& inner, CK_SESSION_HANDLE session,
                                   CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type);

// One attribute's length in bytes, without reading it.
std::optional<CK_ULONG> ReadLength(const CK_FUNCTION_LIST& inner, CK_SESSION_HANDLE session,
                                   CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type);

}  // namespace kelvrin::adapter
