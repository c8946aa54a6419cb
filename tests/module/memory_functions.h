// The standard behaviour of the memory module's functions, and what they share.
#pragma once

#include <p11-kit/pkcs11.h>

#include <algorithm>
#include <span>
#include <vector>

#include "tests/module/memory_module.h"

namespace kelvrin {

// Each puts the functions of its subject into the list.
void AddMemorySlotFunctions(CK_FUNCTION_LIST* list);
void AddMemoryObjectFunctions(CK_FUNCTION_LIST* list);
void AddMemoryOperationFunctions(CK_FUNCTION_LIST* list);

// A function that answers CKR_CRYPTOKI_NOT_INITIALIZED while the module is not initialised.
template <auto function>
struct WhileInitialized;
template <typename... Arguments, CK_RV (*function)(Arguments...)>
struct WhileInitialized<function> {
  static CK_RV Call(Arguments... arguments) {
    if (!MemoryModule::Instance().is_initialized) return CKR_CRYPTOKI_NOT_INITIALIZED;
    return function(arguments...);
  }
};

// A function of a session, its first argument, that is open; and whose card is in its reader.
template <auto function>
struct WithSession;
template <typename... Arguments, CK_RV (*function)(CK_SESSION_HANDLE, Arguments...)>
struct WithSession<function> {
  static CK_RV Check(CK_SESSION_HANDLE handle, Arguments... arguments) {
    auto& module = MemoryModule::Instance();
    const MemorySession* const session = module.FindSession(handle);
    if (session == nullptr) return CKR_SESSION_HANDLE_INVALID;
    if (module.FindCard(session->slot) == nullptr) return CKR_DEVICE_REMOVED;
    return function(handle, arguments...);
  }
  static CK_RV Call(CK_SESSION_HANDLE handle, Arguments... arguments) {
    return WhileInitialized<Check>::Call(handle, arguments...);
  }
};

// Answers with a list, or with its length where there is no room for it.
template <typename Entry>
CK_RV GiveList(const std::vector<Entry>& entries, Entry* list, CK_ULONG* count) {
  const CK_ULONG room = *count;
  *count = entries.size();
  if (list == nullptr) return CKR_OK;
  if (room < entries.size()) return CKR_BUFFER_TOO_SMALL;
  std::copy(entries.begin(), entries.end(), list);
  return CKR_OK;
}

}  // namespace kelvrin
