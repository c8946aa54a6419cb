// Objects, signatures, decryptions and derived keys.
#include <optional>
#include <span>
#include <utility>

#include "adapter/objects/attributes.h"
#include "adapter/operations/key_derivation.h"
#include "adapter/session/adapter.h"
#include "adapter/session/with_session.h"

namespace kelvrin::adapter {

CK_RV Adapter::GetAttributeValue(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object,
                                 CK_ATTRIBUTE* attributes, CK_ULONG count) {
  return WithSession(session, [&](Session& state) {
    return GetAttributes(state.token->objects, state.inner, object, {attributes, count});
  });
}

CK_RV Adapter::FindObjectsInit(CK_SESSION_HANDLE session, CK_ATTRIBUTE* attributes,
                               CK_ULONG count) {
  return WithSession(session, [&](Session& state) {
    state.search.reset();
    Handles found;
    const CK_RV result = state.token->objects.Find(state.inner, {attributes, count}, &found);
    if (result == CKR_OK) state.search.emplace(std::move(found));
    return result;
  });
}

CK_RV Adapter::FindObjects(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE* objects, CK_ULONG room,
                           CK_ULONG* count) {
  return WithSession(session, [&](Session& state) -> CK_RV {
    if (!state.search) return CKR_OPERATION_NOT_INITIALIZED;
    *count = state.search->Next(objects, room);
    return CKR_OK;
  });
}

CK_RV Adapter::FindObjectsFinal(CK_SESSION_HANDLE session) {
  return WithSession(session, [&](Session& state) -> CK_RV {
    if (!state.search) return CKR_OPERATION_NOT_INITIALIZED;
    state.search.reset();
    return CKR_OK;
  });
}

CK_RV Adapter::DestroyObject(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object) {
  return WithSession(session, [&](Session& state) {
    // Its handle may come back for something else.
    if (state.derived == object) state.derived.reset();
    state.token->objects.Forget();
    return backend_->functions.C_DestroyObject(state.inner, object);
  });
}

CK_RV Adapter::SignInit(CK_SESSION_HANDLE session, CK_MECHANISM* mechanism, CK_OBJECT_HANDLE key) {
  return Begin(session, OperationKind::kSign, *mechanism, key);
}

CK_RV Adapter::DecryptInit(CK_SESSION_HANDLE session, CK_MECHANISM* mechanism,
                           CK_OBJECT_HANDLE key) {
  return Begin(session, OperationKind::kDecrypt, *mechanism, key);
}

CK_RV Adapter::Begin(CK_SESSION_HANDLE session, OperationKind kind, const CK_MECHANISM& mechanism,
                     CK_OBJECT_HANDLE key) {
  return WithSession(session, [&](Session& state) {
    const CK_RV result = state.operation.Init(kind, mechanism, key);
    if (state.operation.TakeLogoutRequest()) LogOut(state);
    return result;
  });
}

CK_RV Adapter::Sign(CK_SESSION_HANDLE session, CK_BYTE* data, CK_ULONG size, CK_BYTE* signature,
                    CK_ULONG* signature_size) {
  return Run(session, OperationKind::kSign, data, size, signature, signature_size);
}

CK_RV Adapter::Decrypt(CK_SESSION_HANDLE session, CK_BYTE* data, CK_ULONG size, CK_BYTE* plaintext,
                       CK_ULONG* plaintext_size) {
  return Run(session, OperationKind::kDecrypt, data, size, plaintext, plaintext_size);
}

CK_RV Adapter::Run(CK_SESSION_HANDLE session, OperationKind kind, const CK_BYTE* input,
                   CK_ULONG input_size, CK_BYTE* output, CK_ULONG* output_size) {
  return WithSession(session, [&](Session& state) {
    return state.operation.Run(kind, input, input_size, output, output_size);
  });
}

CK_RV Adapter::DeriveKey(CK_SESSION_HANDLE session, CK_MECHANISM* mechanism,
                         CK_OBJECT_HANDLE base_key, CK_ATTRIBUTE* attributes, CK_ULONG count,
                         CK_OBJECT_HANDLE* key) {
  return WithSession(session, [&](Session& state) {
    if (count == 0 && backend_->config.rules.Has(Rule::kDerivation)) {
      return DeriveReadable(state, *mechanism, base_key, key);
    }
    return state.token->objects.WithCurrent(state.inner, base_key, [&](CK_OBJECT_HANDLE current) {
      return backend_->functions.C_DeriveKey(state.inner, mechanism, current, attributes, count,
                                             key);
    });
  });
}

CK_RV Adapter::DeriveReadable(Session& state, const CK_MECHANISM& mechanism,
                              CK_OBJECT_HANDLE base_key, CK_OBJECT_HANDLE* key) {
  const CK_FUNCTION_LIST& inner = backend_->functions;
  if (const auto previous = std::exchange(state.derived, std::nullopt)) {
    DestroyDerivedKey(inner, state.inner, *previous);
  }
  CK_OBJECT_HANDLE derived = CK_INVALID_HANDLE;
  const CK_RV result =
      state.token->objects.WithCurrent(state.inner, base_key, [&](CK_OBJECT_HANDLE current) {
        return DeriveReadableKey(inner, state.inner, mechanism, current, &derived);
      });
  if (result != CKR_OK) return result;
  state.derived = derived;
  *key = derived;
  return CKR_OK;
}

}  // namespace kelvrin::adapter
