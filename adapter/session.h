// What the adapter keeps for a session of its caller's.
#ifndef KELVRIN_ADAPTER_SESSION_H_
#define KELVRIN_ADAPTER_SESSION_H_

#include <p11-kit/pkcs11.h>

#include <map>
#include <optional>

#include "adapter/key_operation.h"
#include "adapter/search.h"

namespace kelvrin::adapter {

struct Session {
  Session(const CK_FUNCTION_LIST& inner, CK_SESSION_HANDLE handle, CK_SLOT_ID slot_id,
          CK_FLAGS flags)
      : slot(slot_id), operation(inner, handle, slot_id, flags) {}

  CK_SLOT_ID slot;
  KeyOperation operation;
  std::optional<Search> search;
  // The last object derived for a caller that never destroys one.
  CK_OBJECT_HANDLE derived = CK_INVALID_HANDLE;
};

// By the session's handle, which is the module's own.
using Sessions = std::map<CK_SESSION_HANDLE, Session>;

}  // namespace kelvrin::adapter

#endif  // KELVRIN_ADAPTER_SESSION_H_
