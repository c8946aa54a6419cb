// The C boundary: one function list over one adapter. An entry either has a function here or is
// handed on to the module behind.
#include <p11-kit/pkcs11.h>

#include <chrono>
#include <thread>
#include <type_traits>

#include "adapter/adapter.h"
#include "adapter/dual_functions.h"
#include "adapter/entry.h"
#include "adapter/forwarding.h"

namespace kelvrin::adapter {
namespace {

constexpr auto kSlotEventInterval = std::chrono::milliseconds(100);

// A method of the adapter as an entry of the list.
template <auto Method>
struct Changed;
template <typename... Arguments, CK_RV (Adapter::*Method)(Arguments...)>
struct Changed<Method> {
  static CK_RV Call(Arguments... arguments) noexcept {
    return Locked([&](Adapter& adapter) { return (adapter.*Method)(arguments...); });
  }
};

// A new object's handle, the only pointer to a number among such arguments, may have been another
// object's.
template <typename Argument>
void TakeNewAsItIs(Adapter& adapter, Argument argument) {
  if constexpr (std::is_same_v<Argument, CK_OBJECT_HANDLE*>) adapter.TakeAsItIs(*argument);
}

// A forwarded entry that begins with a session.
template <auto Forward>
struct ForSession;
template <typename... Rest, CK_RV (*Forward)(const CK_FUNCTION_LIST&, CK_SESSION_HANDLE, Rest...)>
struct ForSession<Forward> {
  static CK_RV Do(Adapter& adapter, CK_SESSION_HANDLE session, Rest... rest) {
    return adapter.ForwardForSession(
        session, [&](const CK_FUNCTION_LIST& inner) { return Forward(inner, session, rest...); });
  }
  static CK_RV Call(CK_SESSION_HANDLE session, Rest... rest) noexcept {
    return Locked([&](Adapter& adapter) { return Do(adapter, session, rest...); });
  }
  // Whatever comes of it, the token may have another PIN.
  static CK_RV CallAndWipePin(CK_SESSION_HANDLE session, Rest... rest) noexcept {
    return Locked([&](Adapter& adapter) {
      const CK_RV result = Do(adapter, session, rest...);
      adapter.WipePinOf(session);
      adapter.ForgetObjects();
      return result;
    });
  }
  // Whatever comes of it, what was learnt of the token's objects may be true no longer.
  static CK_RV CallAndForget(CK_SESSION_HANDLE session, Rest... rest) noexcept {
    return Locked([&](Adapter& adapter) {
      const CK_RV result = Do(adapter, session, rest...);
      adapter.ForgetObjects();
      if (result == CKR_OK) (TakeNewAsItIs(adapter, rest), ...);
      return result;
    });
  }
};

// A forwarded entry that begins with a slot.
template <auto Forward>
struct ForSlot;
template <typename... Rest, CK_RV (*Forward)(const CK_FUNCTION_LIST&, CK_SLOT_ID, Rest...)>
struct ForSlot<Forward> {
  static CK_RV Do(Adapter& adapter, CK_SLOT_ID slot, Rest... rest) {
    return adapter.ForwardForSlot(
        slot, [&](const CK_FUNCTION_LIST& inner) { return Forward(inner, slot, rest...); });
  }
  static CK_RV Call(CK_SLOT_ID slot, Rest... rest) noexcept {
    return Locked([&](Adapter& adapter) { return Do(adapter, slot, rest...); });
  }
  // Whatever comes of it, the token may have another PIN, and other objects.
  static CK_RV CallAndForget(CK_SLOT_ID slot, Rest... rest) noexcept {
    return Locked([&](Adapter& adapter) {
      const CK_RV result = Do(adapter, slot, rest...);
      adapter.WipePinIn(slot);
      adapter.ForgetObjects();
      return result;
    });
  }
};

// Signing or decrypting; `Forward` hands the call on where the operation was brought back.
template <auto Forward, typename Action, typename... Arguments>
CK_RV WithOperation(const Action& action, CK_SESSION_HANDLE session,
                    Arguments... arguments) noexcept {
  return Locked([&](Adapter& adapter) {
    const auto forward = [&](const CK_FUNCTION_LIST& inner) {
      return Forward(inner, session, arguments...);
    };
    return adapter.WithOperation(session, forward, action);
  });
}

template <OperationKind kKind>
CK_RV OperationInit(CK_SESSION_HANDLE session, CK_MECHANISM* mechanism,
                    CK_OBJECT_HANDLE key) noexcept {
  return Locked(
      [&](Adapter& adapter) { return adapter.BeginOperation(session, kKind, mechanism, key); });
}

template <OperationKind kKind, auto Forward>
CK_RV OperationRun(CK_SESSION_HANDLE session, CK_BYTE* input, CK_ULONG input_size, CK_BYTE* output,
                   CK_ULONG* output_size) noexcept {
  const auto run = [&](KeyOperation& operation) {
    return operation.Run(kKind, input, input_size, output, output_size);
  };
  return WithOperation<Forward>(run, session, input, input_size, output, output_size);
}

template <OperationKind kKind, auto Forward>
CK_RV OperationFinal(CK_SESSION_HANDLE session, CK_BYTE* output, CK_ULONG* output_size) noexcept {
  const auto finish = [&](KeyOperation& operation) {
    return operation.Final(kKind, output, output_size);
  };
  return WithOperation<Forward>(finish, session, output, output_size);
}

CK_RV SignUpdate(CK_SESSION_HANDLE session, CK_BYTE* part, CK_ULONG size) noexcept {
  const auto update = [&](KeyOperation& operation) { return operation.SignUpdate(part, size); };
  return WithOperation<Forwarded<&CK_FUNCTION_LIST::C_SignUpdate>::Plain>(update, session, part,
                                                                          size);
}

CK_RV DecryptUpdate(CK_SESSION_HANDLE session, CK_BYTE* part, CK_ULONG size, CK_BYTE* output,
                    CK_ULONG* output_size) noexcept {
  const auto checked = [&](KeyOperation& operation) {
    const auto update = [&](CK_BYTE* room, CK_ULONG* room_size) {
      return operation.DecryptUpdate(part, size, room, room_size);
    };
    return WriteOutput(update, size, output, output_size);
  };
  return WithOperation<Forwarded<&CK_FUNCTION_LIST::C_DecryptUpdate>::Bytes>(
      checked, session, part, size, output, output_size);
}

// A dual-function call of which one half is an operation here: served by halves, or forwarded when
// the operation runs on the caller's own session.
template <auto Serve, auto Forward>
CK_RV Dual(CK_SESSION_HANDLE session, CK_BYTE* input, CK_ULONG input_size, CK_BYTE* output,
           CK_ULONG* output_size) noexcept {
  return Locked([&](Adapter& adapter) {
    return adapter.ForwardForSession(session, [&](const CK_FUNCTION_LIST& inner) {
      const auto forward = [&](const CK_FUNCTION_LIST& functions) {
        return Forward(functions, session, input, input_size, output, output_size);
      };
      if (!adapter.Has(Rule::kWorkerSessions)) return forward(inner);
      return adapter.WithOperation(session, forward, [&](KeyOperation& operation) {
        return Serve(inner, session, operation, input, input_size, output, output_size);
      });
    });
  });
}

CK_RV Initialize(void* arguments) noexcept {
  return LockedInitialize([&](Adapter& adapter) {
    return adapter.Initialize(static_cast<CK_C_INITIALIZE_ARGS*>(arguments));
  });
}

CK_RV Finalize(void* reserved) noexcept {
  return Locked([&](Adapter& adapter) { return adapter.Finalize(reserved); });
}

CK_RV GetInfo(CK_INFO* info) noexcept {
  return Locked([&](const Adapter& adapter) { return adapter.GetInfo(info); });
}

// Waits by asking again and again: a module that waits inside would keep everybody out.
CK_RV WaitForSlotEvent(CK_FLAGS flags, CK_SLOT_ID* slot, void* reserved) noexcept {
  if (reserved != nullptr) return CKR_ARGUMENTS_BAD;
  for (;;) {
    const CK_RV result = Locked([&](Adapter& adapter) { return adapter.PollSlotEvent(slot); });
    if (result != CKR_NO_EVENT || (flags & CKF_DONT_BLOCK) != 0) return result;
    std::this_thread::sleep_for(kSlotEventInterval);
  }
}

using List = CK_FUNCTION_LIST;

CK_FUNCTION_LIST function_list = {
    .version = {2, 40},
    .C_Initialize = Initialize,
    .C_Finalize = Finalize,
    .C_GetInfo = GetInfo,
    .C_GetFunctionList = C_GetFunctionList,
    .C_GetSlotList = Changed<&Adapter::GetSlotList>::Call,
    .C_GetSlotInfo = Changed<&Adapter::GetSlotInfo>::Call,
    .C_GetTokenInfo = Changed<&Adapter::GetTokenInfo>::Call,
    .C_GetMechanismList = Changed<&Adapter::GetMechanismList>::Call,
    .C_GetMechanismInfo = ForSlot<Forwarded<&List::C_GetMechanismInfo>::Record>::Call,
    .C_InitToken = ForSlot<Forwarded<&List::C_InitToken>::Plain>::CallAndForget,
    .C_InitPIN = ForSession<Forwarded<&List::C_InitPIN>::Plain>::CallAndWipePin,
    .C_SetPIN = ForSession<Forwarded<&List::C_SetPIN>::Plain>::CallAndWipePin,
    .C_OpenSession = Changed<&Adapter::OpenSession>::Call,
    .C_CloseSession = Changed<&Adapter::CloseSession>::Call,
    .C_CloseAllSessions = Changed<&Adapter::CloseAllSessions>::Call,
    .C_GetSessionInfo = ForSession<Forwarded<&List::C_GetSessionInfo>::Record>::Call,
    .C_GetOperationState = Changed<&Adapter::GetOperationState>::Call,
    .C_SetOperationState = Changed<&Adapter::SetOperationState>::Call,
    .C_Login = Changed<&Adapter::Login>::Call,
    .C_Logout = Changed<&Adapter::Logout>::Call,
    .C_CreateObject = ForSession<Forwarded<&List::C_CreateObject>::Object>::CallAndForget,
    .C_CopyObject = ForSession<Forwarded<&List::C_CopyObject>::Object>::CallAndForget,
    .C_DestroyObject = Changed<&Adapter::DestroyObject>::Call,
    .C_GetObjectSize = ForSession<Forwarded<&List::C_GetObjectSize>::Record>::Call,
    .C_GetAttributeValue = Changed<&Adapter::GetAttributeValue>::Call,
    .C_SetAttributeValue = Changed<&Adapter::SetAttributeValue>::Call,
    .C_FindObjectsInit = Changed<&Adapter::FindObjectsInit>::Call,
    .C_FindObjects = Changed<&Adapter::FindObjects>::Call,
    .C_FindObjectsFinal = Changed<&Adapter::FindObjectsFinal>::Call,
    .C_EncryptInit = ForSession<Forwarded<&List::C_EncryptInit>::Plain>::Call,
    .C_Encrypt = ForSession<Forwarded<&List::C_Encrypt>::Bytes>::Call,
    .C_EncryptUpdate = ForSession<Forwarded<&List::C_EncryptUpdate>::Bytes>::Call,
    .C_EncryptFinal = ForSession<Forwarded<&List::C_EncryptFinal>::Bytes>::Call,
    .C_DecryptInit = OperationInit<OperationKind::kDecrypt>,
    .C_Decrypt = OperationRun<OperationKind::kDecrypt, Forwarded<&List::C_Decrypt>::Bytes>,
    .C_DecryptUpdate = DecryptUpdate,
    .C_DecryptFinal =
        OperationFinal<OperationKind::kDecrypt, Forwarded<&List::C_DecryptFinal>::Bytes>,
    .C_DigestInit = ForSession<Forwarded<&List::C_DigestInit>::Plain>::Call,
    .C_Digest = ForSession<Forwarded<&List::C_Digest>::Bytes>::Call,
    .C_DigestUpdate = ForSession<Forwarded<&List::C_DigestUpdate>::Plain>::Call,
    .C_DigestKey = ForSession<Forwarded<&List::C_DigestKey>::Plain>::Call,
    .C_DigestFinal = ForSession<Forwarded<&List::C_DigestFinal>::Bytes>::Call,
    .C_SignInit = OperationInit<OperationKind::kSign>,
    .C_Sign = OperationRun<OperationKind::kSign, Forwarded<&List::C_Sign>::Bytes>,
    .C_SignUpdate = SignUpdate,
    .C_SignFinal = OperationFinal<OperationKind::kSign, Forwarded<&List::C_SignFinal>::Bytes>,
    .C_SignRecoverInit = ForSession<Forwarded<&List::C_SignRecoverInit>::Plain>::Call,
    .C_SignRecover = ForSession<Forwarded<&List::C_SignRecover>::Bytes>::Call,
    .C_VerifyInit = ForSession<Forwarded<&List::C_VerifyInit>::Plain>::Call,
    .C_Verify = ForSession<Forwarded<&List::C_Verify>::Plain>::Call,
    .C_VerifyUpdate = ForSession<Forwarded<&List::C_VerifyUpdate>::Plain>::Call,
    .C_VerifyFinal = ForSession<Forwarded<&List::C_VerifyFinal>::Plain>::Call,
    .C_VerifyRecoverInit = ForSession<Forwarded<&List::C_VerifyRecoverInit>::Plain>::Call,
    .C_VerifyRecover = ForSession<Forwarded<&List::C_VerifyRecover>::Bytes>::Call,
    .C_DigestEncryptUpdate = ForSession<Forwarded<&List::C_DigestEncryptUpdate>::Bytes>::Call,
    .C_DecryptDigestUpdate =
        Dual<&DecryptDigestUpdate, Forwarded<&List::C_DecryptDigestUpdate>::Bytes>,
    .C_SignEncryptUpdate = Dual<&SignEncryptUpdate, Forwarded<&List::C_SignEncryptUpdate>::Bytes>,
    .C_DecryptVerifyUpdate =
        Dual<&DecryptVerifyUpdate, Forwarded<&List::C_DecryptVerifyUpdate>::Bytes>,
    .C_GenerateKey = ForSession<Forwarded<&List::C_GenerateKey>::Object>::CallAndForget,
    .C_GenerateKeyPair = ForSession<Forwarded<&List::C_GenerateKeyPair>::TwoObjects>::CallAndForget,
    .C_WrapKey = ForSession<Forwarded<&List::C_WrapKey>::Bytes>::Call,
    .C_UnwrapKey = ForSession<Forwarded<&List::C_UnwrapKey>::Object>::CallAndForget,
    .C_DeriveKey = Changed<&Adapter::DeriveKey>::Call,
    .C_SeedRandom = ForSession<Forwarded<&List::C_SeedRandom>::Plain>::Call,
    .C_GenerateRandom = ForSession<Forwarded<&List::C_GenerateRandom>::Plain>::Call,
    .C_GetFunctionStatus = ForSession<Forwarded<&List::C_GetFunctionStatus>::Plain>::Call,
    .C_CancelFunction = ForSession<Forwarded<&List::C_CancelFunction>::Plain>::Call,
    .C_WaitForSlotEvent = WaitForSlotEvent,
};

}  // namespace
}  // namespace kelvrin::adapter

extern "C" __attribute__((visibility("default"))) CK_RV
C_GetFunctionList(CK_FUNCTION_LIST_PTR_PTR list) {
  if (list == nullptr) return CKR_ARGUMENTS_BAD;
  if (!kelvrin::adapter::KnowsItself()) return CKR_GENERAL_ERROR;
  *list = &kelvrin::adapter::function_list;
  return CKR_OK;
}
