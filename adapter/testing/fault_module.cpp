// The fault module's life, slots, sessions and logins.
#include "adapter/testing/fault_module.h"

#include <algorithm>
#include <iterator>
#include <string>

#include "adapter/testing/fault_module_state.h"
#include "adapter/text_fields.h"

namespace kelvrin::adapter::fault_module {

State& TheState() {
  static State state;
  return state;
}

FaultControl& Control() {
  static FaultControl control;
  return control;
}

std::vector<CK_MECHANISM_TYPE> OfferedMechanisms() {
  std::vector<CK_MECHANISM_TYPE> offered = {CKM_RSA_X_509, CKM_RSA_PKCS, CKM_ECDSA, CKM_ECDSA_SHA1,
                                            CKM_ECDH1_DERIVE};
  if (Has(Fault::kNoRawRsa)) std::erase(offered, CKM_RSA_X_509);
  if (Has(Fault::kNoEcdsaSha1)) std::erase(offered, CKM_ECDSA_SHA1);
  return offered;
}

CK_RV CheckPin(const CK_BYTE* pin, CK_ULONG size) {
  const bool is_pin = std::equal(pin, pin + size, kPin.begin(), kPin.end());
  if (is_pin && !Control().is_pin_changed) return CKR_OK;
  ++Control().wrong_pins;
  return CKR_PIN_INCORRECT;
}

namespace {

constexpr CK_SLOT_ID kCardSlot = 5;
constexpr CK_SLOT_ID kEmptySlot = 6;       // without a token
constexpr CK_SLOT_ID kBlankTokenSlot = 7;  // with a token that was never initialised

std::vector<CK_SLOT_ID> SlotList(bool with_token) {
  if (!Has(Fault::kSeveralSlots)) return {kCardSlot};
  if (with_token) return {kCardSlot, kBlankTokenSlot};
  return {kEmptySlot, kCardSlot, kBlankTokenSlot};
}

bool HasSlot(CK_SLOT_ID slot) {
  const std::vector<CK_SLOT_ID> slots = SlotList(false);
  return std::find(slots.begin(), slots.end(), slot) != slots.end();
}

template <typename Entry>
CK_RV Deliver(const std::vector<Entry>& entries, Entry* list, CK_ULONG* count) {
  const CK_ULONG room = *count;
  *count = entries.size();
  if (list == nullptr) return CKR_OK;
  if (room < entries.size()) return CKR_BUFFER_TOO_SMALL;
  std::copy(entries.begin(), entries.end(), list);
  return CKR_OK;
}

CK_RV Initialize(void* arguments) {
  ++Control().initialise_calls;
  if (TheState().is_initialised) return CKR_CRYPTOKI_ALREADY_INITIALIZED;
  const auto* const given = static_cast<const CK_C_INITIALIZE_ARGS*>(arguments);
  const bool wants_locks = given != nullptr && (given->flags & CKF_OS_LOCKING_OK) != 0;
  const bool refuses_locks = Has(Fault::kCannotLock) || Has(Fault::kWantsReservedStringOnly);
  if (wants_locks && refuses_locks) return CKR_CANT_LOCK;
  if (wants_locks && Has(Fault::kNeedsToCreateThreads)) return CKR_NEED_TO_CREATE_THREADS;
  if (!wants_locks && Has(Fault::kWantsLocks)) return CKR_ARGUMENTS_BAD;
  if (Has(Fault::kWantsReservedString) || Has(Fault::kWantsReservedStringOnly)) {
    const bool has_string =
        given != nullptr && given->pReserved != nullptr &&
        static_cast<const char*>(given->pReserved) == std::string(kReservedString);
    if (!has_string) return CKR_ARGUMENTS_BAD;
  }
  Control().is_locking = wants_locks;
  for (Object& object : MakeObjects(Control().fault)) {
    TheState().objects[TheState().next_handle++] = std::move(object);
  }
  TheState().is_initialised = true;
  return CKR_OK;
}

CK_RV Finalize(void* /*reserved*/) {
  if (!TheState().is_initialised) return CKR_CRYPTOKI_NOT_INITIALIZED;
  TheState() = State();
  Control().derived_keys = 0;
  return CKR_OK;
}

CK_RV GetInfo(CK_INFO* info) {
  if (!TheState().is_initialised) return CKR_CRYPTOKI_NOT_INITIALIZED;
  *info = {};
  info->cryptokiVersion = {2, 40};
  return CKR_OK;
}

CK_RV GetSlotList(CK_BBOOL token_present, CK_SLOT_ID* list, CK_ULONG* count) {
  return Deliver(SlotList(token_present != CK_FALSE), list, count);
}

CK_RV GetSlotInfo(CK_SLOT_ID slot, CK_SLOT_INFO* info) {
  if (!HasSlot(slot)) return CKR_SLOT_ID_INVALID;
  *info = {};
  SetField(info->slotDescription, "Slot " + std::to_string(slot));
  SetField(info->manufacturerID, "Nobody");
  if (Has(Fault::kNulPaddedDescription)) {
    std::replace(std::begin(info->slotDescription) + 8, std::end(info->slotDescription),
                 CK_UTF8CHAR{' '}, CK_UTF8CHAR{0});
  }
  if (slot != kEmptySlot) info->flags = CKF_TOKEN_PRESENT;
  return CKR_OK;
}

CK_RV GetTokenInfo(CK_SLOT_ID slot, CK_TOKEN_INFO* info) {
  if (!HasSlot(slot)) return CKR_SLOT_ID_INVALID;
  if (slot == kEmptySlot) return CKR_TOKEN_NOT_PRESENT;
  *info = {};
  info->flags = CKF_LOGIN_REQUIRED;
  const bool is_card = slot == kCardSlot;
  if (is_card) info->flags |= CKF_TOKEN_INITIALIZED | CKF_USER_PIN_INITIALIZED;
  SetField(info->label, !is_card ? "" : Has(Fault::kBlankLabel) ? " Card" : "4711 Card");
  SetField(info->serialNumber, is_card ? "4711" : "");
  SetField(info->manufacturerID, "Nobody");
  SetField(info->model, "Card");
  info->ulSessionCount = TheState().sessions.size();
  return CKR_OK;
}

CK_RV GetMechanismList(CK_SLOT_ID slot, CK_MECHANISM_TYPE* list, CK_ULONG* count) {
  return HasSlot(slot) ? Deliver(OfferedMechanisms(), list, count) : CKR_SLOT_ID_INVALID;
}

CK_RV OpenSession(CK_SLOT_ID slot, CK_FLAGS flags, void* /*application*/, CK_NOTIFY /*notify*/,
                  CK_SESSION_HANDLE* session) {
  if (!TheState().is_initialised) return CKR_CRYPTOKI_NOT_INITIALIZED;
  if (!HasSlot(slot)) return CKR_SLOT_ID_INVALID;
  if (slot == kEmptySlot) return CKR_TOKEN_NOT_PRESENT;
  if (slot == kBlankTokenSlot) return CKR_TOKEN_NOT_RECOGNIZED;
  *session = TheState().next_handle++;
  TheState().sessions[*session] = {.slot = slot, .flags = flags};
  return CKR_OK;
}

CK_RV CloseSession(CK_SESSION_HANDLE session) {
  if (TheState().sessions.erase(session) == 0) return CKR_SESSION_HANDLE_INVALID;
  if (TheState().sessions.empty()) TheState().is_logged_in = false;
  return CKR_OK;
}

CK_RV CloseAllSessions(CK_SLOT_ID /*slot*/) {
  TheState().sessions.clear();
  TheState().is_logged_in = false;
  return CKR_OK;
}

CK_RV GetSessionInfo(CK_SESSION_HANDLE session, CK_SESSION_INFO* info) {
  const Session* const state = FindSession(session);
  if (state == nullptr) return CKR_SESSION_HANDLE_INVALID;
  *info = {};
  info->slotID = state->slot;
  info->flags = state->flags;
  info->state = TheState().is_logged_in ? CKS_RW_USER_FUNCTIONS : CKS_RW_PUBLIC_SESSION;
  return CKR_OK;
}

CK_RV ContextLogin(Session* session, const CK_BYTE* pin, CK_ULONG size) {
  if (!session->operation) return CKR_OPERATION_NOT_INITIALIZED;
  const CK_RV result = CheckPin(pin, size);
  if (result != CKR_OK) return result;
  session->operation->is_logged_in = true;
  ++Control().context_logins;
  return CKR_OK;
}

CK_RV Login(CK_SESSION_HANDLE session, CK_USER_TYPE user, CK_BYTE* pin, CK_ULONG size) {
  Session* const state = FindSession(session);
  if (state == nullptr) return CKR_SESSION_HANDLE_INVALID;
  if (user == CKU_CONTEXT_SPECIFIC) return ContextLogin(state, pin, size);
  if (TheState().is_logged_in) return CKR_USER_ALREADY_LOGGED_IN;
  const CK_RV result = CheckPin(pin, size);
  TheState().is_logged_in = result == CKR_OK;
  return result;
}

CK_RV Logout(CK_SESSION_HANDLE session) {
  if (FindSession(session) == nullptr) return CKR_SESSION_HANDLE_INVALID;
  if (!TheState().is_logged_in) return CKR_USER_NOT_LOGGED_IN;
  TheState().is_logged_in = false;
  return CKR_OK;
}

CK_FUNCTION_LIST MakeList() {
  CK_FUNCTION_LIST list = {};
  list.version = {2, 40};
  list.C_Initialize = Initialize;
  list.C_Finalize = Finalize;
  list.C_GetInfo = GetInfo;
  list.C_GetSlotList = GetSlotList;
  list.C_GetSlotInfo = GetSlotInfo;
  list.C_GetTokenInfo = GetTokenInfo;
  list.C_GetMechanismList = GetMechanismList;
  list.C_OpenSession = OpenSession;
  list.C_CloseSession = CloseSession;
  list.C_CloseAllSessions = CloseAllSessions;
  list.C_GetSessionInfo = GetSessionInfo;
  list.C_Login = Login;
  list.C_Logout = Logout;
  AddObjectFunctions(&list);
  AddOperationFunctions(&list);
  return list;
}

}  // namespace
}  // namespace kelvrin::adapter::fault_module

extern "C" __attribute__((visibility("default"))) CK_RV
C_GetFunctionList(CK_FUNCTION_LIST_PTR_PTR list) {
  static CK_FUNCTION_LIST functions = kelvrin::adapter::fault_module::MakeList();
  *list = &functions;
  return CKR_OK;
}

extern "C" __attribute__((visibility("default"))) kelvrin::adapter::FaultControl* kelvrin_faults() {
  return &kelvrin::adapter::fault_module::Control();
}
