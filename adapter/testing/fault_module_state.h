// What the fault module's functions share: the token's objects, the sessions, the fault.
#ifndef KELVRIN_ADAPTER_TESTING_FAULT_MODULE_STATE_H_
#define KELVRIN_ADAPTER_TESTING_FAULT_MODULE_STATE_H_

#include <p11-kit/pkcs11.h>

#include <map>
#include <optional>
#include <vector>

#include "adapter/testing/fault_module.h"
#include "adapter/testing/fault_module_token.h"

namespace kelvrin::adapter::fault_module {

struct OpenSearch {
  std::vector<CK_OBJECT_HANDLE> found;
  std::size_t given = 0;
};

struct Operation {
  bool is_signature = false;
  CK_MECHANISM_TYPE mechanism = 0;
  CK_OBJECT_HANDLE key = CK_INVALID_HANDLE;
  bool is_logged_in = false;  // for itself
};

struct Session {
  CK_SLOT_ID slot = 0;
  CK_FLAGS flags = 0;
  std::optional<OpenSearch> search = {};
  std::optional<Operation> operation = {};
  bool is_stuck = false;
};

struct State {
  bool is_initialised = false;
  bool is_logged_in = false;
  std::map<CK_OBJECT_HANDLE, Object> objects;
  std::map<CK_SESSION_HANDLE, Session> sessions;
  CK_ULONG next_handle = 1;
};

State& TheState();
FaultControl& Control();
inline bool Has(Fault fault) { return Control().fault == fault; }

// The session; null when there is none of that handle.
inline Session* FindSession(CK_SESSION_HANDLE handle) {
  const auto found = TheState().sessions.find(handle);
  return found == TheState().sessions.end() ? nullptr : &found->second;
}

// The object, if it may be seen now; null otherwise.
inline const Object* FindObject(CK_OBJECT_HANDLE handle) {
  const auto found = TheState().objects.find(handle);
  if (found == TheState().objects.end()) return nullptr;
  return found->second.is_private && !TheState().is_logged_in ? nullptr : &found->second;
}

// The mechanisms that the slot offers.
std::vector<CK_MECHANISM_TYPE> OfferedMechanisms();

// Looks at the PIN of a login, whatever it is for.
CK_RV CheckPin(const CK_BYTE* pin, CK_ULONG size);

// The functions of one subject each, put into the list by the other files.
void AddObjectFunctions(CK_FUNCTION_LIST* list);
void AddOperationFunctions(CK_FUNCTION_LIST* list);

}  // namespace kelvrin::adapter::fault_module

#endif  // KELVRIN_ADAPTER_TESTING_FAULT_MODULE_STATE_H_
