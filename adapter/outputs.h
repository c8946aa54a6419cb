// Results of the module's that a caller's memory never meets before they are checked.
#ifndef KELVRIN_ADAPTER_OUTPUTS_H_
#define KELVRIN_ADAPTER_OUTPUTS_H_

#include <p11-kit/pkcs11.h>

#include <functional>

namespace kelvrin::adapter {

// Calls a function of the module's with a buffer and its size.
using OutputCall = std::function<CK_RV(CK_BYTE* output, CK_ULONG* size)>;

// Runs a function whose result is bytes with a length, made from `input_size` bytes. The module
// writes into memory of the adapter's own, of the caller's room where that is believable, which is
// wiped afterwards. `output` gets the bytes only with CKR_OK; `output_size` gets their number, or
// with CKR_BUFFER_TOO_SMALL the number that is needed; after any other result both are as they
// were. A null `output` asks for the size. CKR_ARGUMENTS_BAD when `output_size` is null;
// CKR_DEVICE_ERROR when the module claims a length that cannot be.
CK_RV WriteOutput(const OutputCall& call, CK_ULONG input_size, CK_BYTE* output,
                  CK_ULONG* output_size);

// Runs a function whose result is a new object's handle, which gets there with CKR_OK only.
// CKR_DEVICE_ERROR when the module gives none.
template <typename Call>
CK_RV WriteHandle(const Call& call, CK_OBJECT_HANDLE* object) {
  CK_OBJECT_HANDLE made = CK_INVALID_HANDLE;
  const CK_RV result = call(&made);
  if (result != CKR_OK) return result;
  if (made == CK_INVALID_HANDLE) return CKR_DEVICE_ERROR;
  *object = made;
  return CKR_OK;
}

// The same for two new objects.
template <typename Call>
CK_RV WriteHandles(const Call& call, CK_OBJECT_HANDLE* first, CK_OBJECT_HANDLE* second) {
  CK_OBJECT_HANDLE other = CK_INVALID_HANDLE;
  const CK_RV result = WriteHandle(
      [&](CK_OBJECT_HANDLE* made) {
        const CK_RV outcome = call(made, &other);
        const bool is_missing = outcome == CKR_OK && other == CK_INVALID_HANDLE;
        return is_missing ? CKR_DEVICE_ERROR : outcome;
      },
      first);
  if (result == CKR_OK) *second = other;
  return result;
}

// Runs a function whose result is a record, which gets there with CKR_OK only.
template <typename Record, typename Call>
CK_RV WriteRecord(const Call& call, Record* record) {
  Record made = {};
  const CK_RV result = call(&made);
  if (result == CKR_OK) *record = made;
  return result;
}

}  // namespace kelvrin::adapter

#endif  // KELVRIN_ADAPTER_OUTPUTS_H_
