// The C boundary: one function list, one mutex, one adapter. An entry either has a function here or
// is handed on to the module behind.
#include <p11-kit/pkcs11.h>

#include <chrono>
#include <filesystem>
#include <mutex>
#include <new>
#include <string>
#include <system_error>
#include <thread>

#include "adapter/adapter.h"
#include "adapter/config.h"
#include "adapter/inner_module.h"
#include "adapter/own_library.h"
#include "adapter/setup_error.h"

namespace kelvrin::adapter {
namespace {

constexpr auto kSlotEventInterval = std::chrono::milliseconds(100);

// Asked for before the program can change its working folder, since the path may be relative.
const std::filesystem::path& Library() {
  static const auto* const library = new std::filesystem::path(OwnLibrary());
  return *library;
}

Backend OpenBackend() {
  Backend backend;
  backend.config = ReadConfig(ConfigFileOf(Library()));
  const Config& config = backend.config;
  std::error_code ignored;
  if (std::filesystem::equivalent(config.module, Library(), ignored)) {
    throw SetupError(CKR_FUNCTION_FAILED,
                     config.file.string() + ":" + std::to_string(config.module_line) +
                         ": the module is the adapter itself; name the module to put behind it");
  }
  backend.functions = LoadInnerModule(config);
  return backend;
}

// Never destroyed: the program may call until its very end.
Adapter& TheAdapter() {
  static auto* const adapter = new Adapter(OpenBackend);
  return *adapter;
}

std::mutex mutex;
thread_local bool is_inside = false;

// Lets one call in at a time, whatever the module behind promises, and lets no exception out. A
// module that calls back into the adapter is refused: it would wait for itself.
template <typename Action>
CK_RV Locked(const Action& action) noexcept {
  if (is_inside) return CKR_FUNCTION_FAILED;
  is_inside = true;
  CK_RV result = CKR_GENERAL_ERROR;
  try {
    const std::lock_guard<std::mutex> lock(mutex);
    result = action(TheAdapter());
  } catch (const std::bad_alloc&) {
    result = CKR_HOST_MEMORY;
  } catch (...) {
    result = CKR_GENERAL_ERROR;
  }
  is_inside = false;
  return result;
}

// A method of the adapter as an entry of the list.
template <auto Method>
struct Changed;
template <typename... Arguments, CK_RV (Adapter::*Method)(Arguments...)>
struct Changed<Method> {
  static CK_RV Call(Arguments... arguments) noexcept {
    return Locked([&](Adapter& adapter) { return (adapter.*Method)(arguments...); });
  }
};

// An entry of the module's that begins with a session.
template <auto Entry>
struct ForSession;
template <typename... Rest, CK_RV (*CK_FUNCTION_LIST::*Entry)(CK_SESSION_HANDLE, Rest...)>
struct ForSession<Entry> {
  static CK_RV Call(CK_SESSION_HANDLE session, Rest... rest) noexcept {
    return Locked([&](Adapter& adapter) {
      return adapter.ForwardForSession(
          session, [&](const CK_FUNCTION_LIST& inner) { return (inner.*Entry)(session, rest...); });
    });
  }
};

// An entry of the module's that begins with a slot.
template <auto Entry>
struct ForSlot;
template <typename... Rest, CK_RV (*CK_FUNCTION_LIST::*Entry)(CK_SLOT_ID, Rest...)>
struct ForSlot<Entry> {
  static CK_RV Call(CK_SLOT_ID slot, Rest... rest) noexcept {
    return Locked([&](Adapter& adapter) {
      return adapter.ForwardForSlot(
          slot, [&](const CK_FUNCTION_LIST& inner) { return (inner.*Entry)(slot, rest...); });
    });
  }
};

template <typename Action>
CK_RV WithOperation(CK_SESSION_HANDLE session, const Action& action) noexcept {
  return Locked([&](Adapter& adapter) { return adapter.WithOperation(session, action); });
}

template <OperationKind kKind>
CK_RV OperationInit(CK_SESSION_HANDLE session, CK_MECHANISM* mechanism,
                    CK_OBJECT_HANDLE key) noexcept {
  return WithOperation(
      session, [&](KeyOperation& operation) { return operation.Init(kKind, mechanism, key); });
}

template <OperationKind kKind>
CK_RV OperationRun(CK_SESSION_HANDLE session, CK_BYTE* input, CK_ULONG input_size, CK_BYTE* output,
                   CK_ULONG* output_size) noexcept {
  return WithOperation(session, [&](KeyOperation& operation) {
    return operation.Run(kKind, input, input_size, output, output_size);
  });
}

template <OperationKind kKind>
CK_RV OperationFinal(CK_SESSION_HANDLE session, CK_BYTE* output, CK_ULONG* output_size) noexcept {
  return WithOperation(session, [&](KeyOperation& operation) {
    return operation.Final(kKind, output, output_size);
  });
}

CK_RV SignUpdate(CK_SESSION_HANDLE session, CK_BYTE* part, CK_ULONG size) noexcept {
  return WithOperation(session,
                       [&](KeyOperation& operation) { return operation.SignUpdate(part, size); });
}

CK_RV DecryptUpdate(CK_SESSION_HANDLE session, CK_BYTE* part, CK_ULONG size, CK_BYTE* output,
                    CK_ULONG* output_size) noexcept {
  return WithOperation(session, [&](KeyOperation& operation) {
    return operation.DecryptUpdate(part, size, output, output_size);
  });
}

CK_RV Initialize(void* arguments) noexcept {
  return Locked([&](Adapter& adapter) {
    return adapter.Initialize(static_cast<const CK_C_INITIALIZE_ARGS*>(arguments));
  });
}

CK_RV Finalize(void* reserved) noexcept {
  return Locked([&](Adapter& adapter) { return adapter.Finalize(reserved); });
}

CK_RV GetInfo(CK_INFO* info) noexcept {
  return Locked([&](const Adapter& adapter) { return adapter.GetInfo(info); });
}

// The flag changes nothing: the slot that is shown has a token.
CK_RV GetSlotList(CK_BBOOL, CK_SLOT_ID* list, CK_ULONG* count) noexcept {
  return Locked([&](Adapter& adapter) { return adapter.GetSlotList(list, count); });
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
    .C_GetSlotList = GetSlotList,
    .C_GetSlotInfo = Changed<&Adapter::GetSlotInfo>::Call,
    .C_GetTokenInfo = Changed<&Adapter::GetTokenInfo>::Call,
    .C_GetMechanismList = Changed<&Adapter::GetMechanismList>::Call,
    .C_GetMechanismInfo = ForSlot<&List::C_GetMechanismInfo>::Call,
    .C_InitToken = ForSlot<&List::C_InitToken>::Call,
    .C_InitPIN = ForSession<&List::C_InitPIN>::Call,
    .C_SetPIN = ForSession<&List::C_SetPIN>::Call,
    .C_OpenSession = Changed<&Adapter::OpenSession>::Call,
    .C_CloseSession = Changed<&Adapter::CloseSession>::Call,
    .C_CloseAllSessions = Changed<&Adapter::CloseAllSessions>::Call,
    .C_GetSessionInfo = ForSession<&List::C_GetSessionInfo>::Call,
    .C_GetOperationState = ForSession<&List::C_GetOperationState>::Call,
    .C_SetOperationState = ForSession<&List::C_SetOperationState>::Call,
    .C_Login = Changed<&Adapter::Login>::Call,
    .C_Logout = Changed<&Adapter::Logout>::Call,
    .C_CreateObject = ForSession<&List::C_CreateObject>::Call,
    .C_CopyObject = ForSession<&List::C_CopyObject>::Call,
    .C_DestroyObject = Changed<&Adapter::DestroyObject>::Call,
    .C_GetObjectSize = ForSession<&List::C_GetObjectSize>::Call,
    .C_GetAttributeValue = Changed<&Adapter::GetAttributeValue>::Call,
    .C_SetAttributeValue = ForSession<&List::C_SetAttributeValue>::Call,
    .C_FindObjectsInit = Changed<&Adapter::FindObjectsInit>::Call,
    .C_FindObjects = Changed<&Adapter::FindObjects>::Call,
    .C_FindObjectsFinal = Changed<&Adapter::FindObjectsFinal>::Call,
    .C_EncryptInit = ForSession<&List::C_EncryptInit>::Call,
    .C_Encrypt = ForSession<&List::C_Encrypt>::Call,
    .C_EncryptUpdate = ForSession<&List::C_EncryptUpdate>::Call,
    .C_EncryptFinal = ForSession<&List::C_EncryptFinal>::Call,
    .C_DecryptInit = OperationInit<OperationKind::kDecrypt>,
    .C_Decrypt = OperationRun<OperationKind::kDecrypt>,
    .C_DecryptUpdate = DecryptUpdate,
    .C_DecryptFinal = OperationFinal<OperationKind::kDecrypt>,
    .C_DigestInit = ForSession<&List::C_DigestInit>::Call,
    .C_Digest = ForSession<&List::C_Digest>::Call,
    .C_DigestUpdate = ForSession<&List::C_DigestUpdate>::Call,
    .C_DigestKey = ForSession<&List::C_DigestKey>::Call,
    .C_DigestFinal = ForSession<&List::C_DigestFinal>::Call,
    .C_SignInit = OperationInit<OperationKind::kSign>,
    .C_Sign = OperationRun<OperationKind::kSign>,
    .C_SignUpdate = SignUpdate,
    .C_SignFinal = OperationFinal<OperationKind::kSign>,
    .C_SignRecoverInit = ForSession<&List::C_SignRecoverInit>::Call,
    .C_SignRecover = ForSession<&List::C_SignRecover>::Call,
    .C_VerifyInit = ForSession<&List::C_VerifyInit>::Call,
    .C_Verify = ForSession<&List::C_Verify>::Call,
    .C_VerifyUpdate = ForSession<&List::C_VerifyUpdate>::Call,
    .C_VerifyFinal = ForSession<&List::C_VerifyFinal>::Call,
    .C_VerifyRecoverInit = ForSession<&List::C_VerifyRecoverInit>::Call,
    .C_VerifyRecover = ForSession<&List::C_VerifyRecover>::Call,
    .C_DigestEncryptUpdate = ForSession<&List::C_DigestEncryptUpdate>::Call,
    .C_DecryptDigestUpdate = ForSession<&List::C_DecryptDigestUpdate>::Call,
    .C_SignEncryptUpdate = ForSession<&List::C_SignEncryptUpdate>::Call,
    .C_DecryptVerifyUpdate = ForSession<&List::C_DecryptVerifyUpdate>::Call,
    .C_GenerateKey = ForSession<&List::C_GenerateKey>::Call,
    .C_GenerateKeyPair = ForSession<&List::C_GenerateKeyPair>::Call,
    .C_WrapKey = ForSession<&List::C_WrapKey>::Call,
    .C_UnwrapKey = ForSession<&List::C_UnwrapKey>::Call,
    .C_DeriveKey = Changed<&Adapter::DeriveKey>::Call,
    .C_SeedRandom = ForSession<&List::C_SeedRandom>::Call,
    .C_GenerateRandom = ForSession<&List::C_GenerateRandom>::Call,
    .C_GetFunctionStatus = ForSession<&List::C_GetFunctionStatus>::Call,
    .C_CancelFunction = ForSession<&List::C_CancelFunction>::Call,
    .C_WaitForSlotEvent = WaitForSlotEvent,
};

}  // namespace
}  // namespace kelvrin::adapter

extern "C" __attribute__((visibility("default"))) CK_RV
C_GetFunctionList(CK_FUNCTION_LIST_PTR_PTR list) {
  if (list == nullptr) return CKR_ARGUMENTS_BAD;
  try {
    kelvrin::adapter::Library();
  } catch (...) {
    return CKR_GENERAL_ERROR;
  }
  *list = &kelvrin::adapter::function_list;
  return CKR_OK;
}
