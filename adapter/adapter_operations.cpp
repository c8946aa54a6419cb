// The adapter's functions that begin operations, save them and bring them back.
#include "adapter/adapter.h"
#include "adapter/forwarding.h"

namespace kelvrin::adapter {

CK_RV Adapter::BeginOperation(CK_SESSION_HANDLE session, OperationKind kind,
                              CK_MECHANISM* mechanism, CK_OBJECT_HANDLE key) {
  return WithSession(session, [&](Session& state) {
    const CK_RV result = RunOperation(state, session, [&](KeyOperation& operation) {
      return operation.Init(kind, mechanism, key);
    });
    if (result == CKR_OK) state.has_restored = false;
    return result;
  });
}

CK_RV Adapter::GetOperationState(CK_SESSION_HANDLE session, CK_BYTE* state, CK_ULONG* size) {
  return WithSession(session, [&](const Session& caller) -> CK_RV {
    const auto active = caller.operation.ActiveSession();
    // What the adapter does itself to input and result would be lost.
    if (active && !caller.operation.IsPlain()) return CKR_STATE_UNSAVEABLE;
    return Forwarded<&CK_FUNCTION_LIST::C_GetOperationState>::Bytes(
        backend_->functions, active.value_or(session), state, size);
  });
}

CK_RV Adapter::SetOperationState(CK_SESSION_HANDLE session, CK_BYTE* state, CK_ULONG size,
                                 CK_OBJECT_HANDLE encryption_key,
                                 CK_OBJECT_HANDLE authentication_key) {
  return WithSession(session, [&](Session& caller) {
    // Without a worker it would be ended after the other has taken its place.
    if (caller.operation.ActiveSession() == session) caller.operation.Close();
    const CK_RV result = Forwarded<&CK_FUNCTION_LIST::C_SetOperationState>::Plain(
        backend_->functions, session, state, size, encryption_key, authentication_key);
    if (result != CKR_OK) return result;
    caller.operation.Close();
    caller.has_restored = true;
    return result;
  });
}

}  // namespace kelvrin::adapter
