#include "adapter/testing/fake_module.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "adapter/inner_module.h"

namespace kelvrin::adapter {

FakeModule* FakeModule::current = nullptr;

FakeModule::FakeModule() { current = this; }

FakeModule::~FakeModule() { current = nullptr; }

CK_FUNCTION_LIST FakeModule::functions() {
  CK_FUNCTION_LIST list = {};
  list.version = {2, 40};
  AddTokenFunctions(&list);
  AddObjectFunctions(&list);
  return CompleteFunctionList(list);
}

std::size_t FakeModule::Calls(const std::string& function) const {
  const auto found = calls_.find(function);
  return found == calls_.end() ? 0 : found->second;
}

CK_RV FakeModule::Enter(const std::string& function) {
  ++calls_[function];
  auto& failures = failures_[function];
  if (failures.empty()) return CKR_OK;
  const CK_RV result = failures.front();
  failures.pop_front();
  return result;
}

FakeModule::Slot* FakeModule::FindSlot(CK_SLOT_ID id) {
  const auto found =
      std::find_if(slots.begin(), slots.end(), [&](const Slot& slot) { return slot.id == id; });
  return found == slots.end() ? nullptr : &*found;
}

void FakeModule::LoseSessions(CK_SESSION_HANDLE next) {
  sessions.clear();
  has_user = false;
  next_session = next;
}

CK_OBJECT_HANDLE FakeModule::Add(Object object) {
  objects[next_object_] = std::move(object);
  return next_object_++;
}

FakeModule::Bytes FakeModule::Number(CK_ULONG value) {
  Bytes bytes(sizeof(value));
  std::memcpy(bytes.data(), &value, sizeof(value));
  return bytes;
}

CK_RV FakeModule::Begin(CK_SESSION_HANDLE handle, const CK_MECHANISM* mechanism) {
  const auto session = sessions.find(handle);
  if (session == sessions.end()) return CKR_SESSION_HANDLE_INVALID;
  if (session->second.operation || session->second.searching) return CKR_OPERATION_ACTIVE;
  session->second.operation = mechanism->mechanism;
  return CKR_OK;
}

// After a failure the operation stays open, as in many real modules.
CK_RV FakeModule::Finish(const Operation& action, CK_SESSION_HANDLE handle, CK_BYTE* input,
                         CK_ULONG size, CK_BYTE* output, CK_ULONG* output_size) {
  const auto found = sessions.find(handle);
  if (found == sessions.end()) return CKR_SESSION_HANDLE_INVALID;
  Session& session = found->second;
  if (!session.operation) return CKR_OPERATION_NOT_INITIALIZED;
  if (input == nullptr) return CKR_ARGUMENTS_BAD;
  Bytes answer;
  const CK_RV result = action(*session.operation, Bytes(input, input + size), &answer);
  if (result != CKR_OK) return result;
  const CK_ULONG room = *output_size;
  *output_size = answer.size() + claimed_excess;
  if (output == nullptr) return CKR_OK;
  if (room < answer.size()) return CKR_BUFFER_TOO_SMALL;
  std::copy(answer.begin(), answer.end(), output);
  session.operation.reset();
  return CKR_OK;
}

}  // namespace kelvrin::adapter
