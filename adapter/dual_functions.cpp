#include "adapter/dual_functions.h"

#include "adapter/outputs.h"

namespace kelvrin::adapter {
namespace {

bool AreBad(const CK_BYTE* input, CK_ULONG size) { return input == nullptr && size != 0; }

// Decrypts, and hands the plaintext to feed(part, size) before the caller gets it.
template <typename Feed>
CK_RV DecryptAndFeed(const Feed& feed, KeyOperation& operation, CK_BYTE* encrypted,
                     CK_ULONG encrypted_size, CK_BYTE* part, CK_ULONG* part_size) {
  if (!operation.IsUnderWay(OperationKind::kDecrypt)) return CKR_OPERATION_NOT_INITIALIZED;
  if (AreBad(encrypted, encrypted_size)) return CKR_ARGUMENTS_BAD;
  const auto both = [&](CK_BYTE* output, CK_ULONG* size) {
    const CK_ULONG room = *size;
    CK_RV result = operation.DecryptUpdate(encrypted, encrypted_size, output, size);
    if (result != CKR_OK || output == nullptr || *size > room) return result;
    result = feed(output, *size);
    if (result != CKR_OK) operation.Close();
    return result;
  };
  return WriteOutput(both, encrypted_size, part, part_size);
}

}  // namespace

CK_RV SignEncryptUpdate(const CK_FUNCTION_LIST& inner, CK_SESSION_HANDLE session,
                        KeyOperation& operation, CK_BYTE* part, CK_ULONG part_size,
                        CK_BYTE* encrypted, CK_ULONG* encrypted_size) {
  if (!operation.IsUnderWay(OperationKind::kSign)) return CKR_OPERATION_NOT_INITIALIZED;
  if (AreBad(part, part_size)) return CKR_ARGUMENTS_BAD;
  const auto both = [&](CK_BYTE* output, CK_ULONG* size) {
    const CK_ULONG room = *size;
    // Encrypted first: that is the half which may find the room too small and be asked again.
    const CK_RV result = inner.C_EncryptUpdate(session, part, part_size, output, size);
    if (result == CKR_BUFFER_TOO_SMALL) return result;
    if (result == CKR_OK && output == nullptr) return result;
    if (result == CKR_OK && *size <= room) return operation.SignUpdate(part, part_size);
    operation.Close();
    return result;
  };
  return WriteOutput(both, part_size, encrypted, encrypted_size);
}

CK_RV DecryptVerifyUpdate(const CK_FUNCTION_LIST& inner, CK_SESSION_HANDLE session,
                          KeyOperation& operation, CK_BYTE* encrypted, CK_ULONG encrypted_size,
                          CK_BYTE* part, CK_ULONG* part_size) {
  const auto feed = [&](CK_BYTE* plain, CK_ULONG size) {
    return inner.C_VerifyUpdate(session, plain, size);
  };
  return DecryptAndFeed(feed, operation, encrypted, encrypted_size, part, part_size);
}

CK_RV DecryptDigestUpdate(const CK_FUNCTION_LIST& inner, CK_SESSION_HANDLE session,
                          KeyOperation& operation, CK_BYTE* encrypted, CK_ULONG encrypted_size,
                          CK_BYTE* part, CK_ULONG* part_size) {
  const auto feed = [&](CK_BYTE* plain, CK_ULONG size) {
    return inner.C_DigestUpdate(session, plain, size);
  };
  return DecryptAndFeed(feed, operation, encrypted, encrypted_size, part, part_size);
}

}  // namespace kelvrin::adapter
