// The C boundary: one function list over one adapter.
#include <p11-kit/pkcs11.h>
#include <unistd.h>

#include <atomic>
#include <mutex>
#include <new>

#include "adapter/boundary/own_library.h"
#include "adapter/inner/inner_module.h"
#include "adapter/session/adapter.h"

namespace kelvrin::adapter {
namespace {

// The process that has called C_Initialize first, 0 before that. A child of a fork has another
// number and is turned away before the lock, which a thread of the parent may hold for ever.
std::atomic<pid_t> owner = 0;
// The caller has got the function list since the last C_Initialize.
std::atomic<bool> has_fresh_list = false;

CK_FUNCTION_LIST* OwnList();

Backend OpenBackend() {
  Backend backend;
  backend.config = ReadConfig(ConfigFileOf(OwnLibrary()));
  backend.functions = LoadInnerModule(backend.config, OwnList());
  return backend;
}

// One call at a time in the whole process. Never destroyed: the program may call until its end.
struct Process {
  std::mutex mutex;
  Adapter adapter{OpenBackend};
};

Process& TheProcess() {
  static auto* const process = new Process;
  return *process;
}

// Calls action(Adapter&) and lets no exception out.
template <typename Action>
CK_RV Locked(const Action& action) noexcept {
  try {
    const pid_t known = owner.load();
    if (known != 0 && known != getpid()) return CKR_CRYPTOKI_NOT_INITIALIZED;
    Process& process = TheProcess();
    const std::lock_guard lock(process.mutex);
    return action(process.adapter);
  } catch (const std::bad_alloc&) {
    return CKR_HOST_MEMORY;
  } catch (...) {
    return CKR_GENERAL_ERROR;
  }
}

// A method of the adapter as an entry of the list.
template <auto Method>
struct Served;
template <typename... Arguments, CK_RV (Adapter::*Method)(Arguments...)>
struct Served<Method> {
  static CK_RV Call(Arguments... arguments) noexcept {
    return Locked([&](Adapter& adapter) { return (adapter.*Method)(arguments...); });
  }
};

CK_RV Initialize(void* /*arguments*/) noexcept {
  return Locked([](Adapter& adapter) {
    owner.store(getpid());
    return adapter.Initialize(has_fresh_list.exchange(false));
  });
}

CK_RV Finalize(void* /*reserved*/) noexcept {
  return Locked([](Adapter& adapter) { return adapter.Finalize(); });
}

CK_RV GetInfo(CK_INFO* info) noexcept {
  return Locked([&](const Adapter& adapter) { return adapter.GetInfo(info); });
}

// What the adapter's caller never asks for is not supported.
// Under its exported name another module's function would be meant where that was loaded first.
CK_RV GetFunctionList(CK_FUNCTION_LIST_PTR_PTR list) noexcept {
  if (list == nullptr) return CKR_ARGUMENTS_BAD;
  // A function list kept too long never points into nothing.
  StayMapped();
  has_fresh_list.store(true);
  *list = OwnList();
  return CKR_OK;
}

CK_FUNCTION_LIST MakeFunctionList() {
  CK_FUNCTION_LIST list = {};
  list.version = {2, 40};
  list.C_Initialize = Initialize;
  list.C_Finalize = Finalize;
  list.C_GetInfo = GetInfo;
  list.C_GetFunctionList = GetFunctionList;
  list.C_GetSlotList = Served<&Adapter::GetSlotList>::Call;
  list.C_GetSlotInfo = Served<&Adapter::GetSlotInfo>::Call;
  list.C_GetTokenInfo = Served<&Adapter::GetTokenInfo>::Call;
  list.C_GetMechanismList = Served<&Adapter::GetMechanismList>::Call;
  list.C_GetMechanismInfo = Served<&Adapter::GetMechanismInfo>::Call;
  list.C_OpenSession = Served<&Adapter::OpenSession>::Call;
  list.C_CloseSession = Served<&Adapter::CloseSession>::Call;
  list.C_CloseAllSessions = Served<&Adapter::CloseAllSessions>::Call;
  list.C_GetSessionInfo = Served<&Adapter::GetSessionInfo>::Call;
  list.C_Login = Served<&Adapter::Login>::Call;
  list.C_Logout = Served<&Adapter::Logout>::Call;
  list.C_DestroyObject = Served<&Adapter::DestroyObject>::Call;
  list.C_GetAttributeValue = Served<&Adapter::GetAttributeValue>::Call;
  list.C_FindObjectsInit = Served<&Adapter::FindObjectsInit>::Call;
  list.C_FindObjects = Served<&Adapter::FindObjects>::Call;
  list.C_FindObjectsFinal = Served<&Adapter::FindObjectsFinal>::Call;
  list.C_SignInit = Served<&Adapter::SignInit>::Call;
  list.C_Sign = Served<&Adapter::Sign>::Call;
  list.C_DecryptInit = Served<&Adapter::DecryptInit>::Call;
  list.C_Decrypt = Served<&Adapter::Decrypt>::Call;
  list.C_DeriveKey = Served<&Adapter::DeriveKey>::Call;
  return CompleteFunctionList(list);
}

CK_FUNCTION_LIST* OwnList() {
  static CK_FUNCTION_LIST list = MakeFunctionList();
  return &list;
}

}  // namespace
}  // namespace kelvrin::adapter

extern "C" __attribute__((visibility("default"))) CK_RV
C_GetFunctionList(CK_FUNCTION_LIST_PTR_PTR list) {
  return kelvrin::adapter::GetFunctionList(list);
}
