#include "modulecheck/testing/fault_login.h"

#include <sys/prctl.h>
#include <sys/resource.h>

#include <set>
#include <string>

#include "modulecheck/testing/fault.h"

namespace kelvrin::fault {
namespace {

std::string LabelOf(CK_SESSION_HANDLE session) {
  CK_SESSION_INFO info = {};
  CK_TOKEN_INFO token = {};
  behind->C_GetSessionInfo(session, &info);
  behind->C_GetTokenInfo(info.slotID, &token);
  return {reinterpret_cast<const char*>(token.label), sizeof(token.label)};
}

// As files, or through a pipe, for which the limit counts for nothing.
bool LeavesCoreFiles() {
  rlimit limit = {};
  return getrlimit(RLIMIT_CORE, &limit) != 0 || limit.rlim_max != 0 || prctl(PR_GET_DUMPABLE) != 0;
}

// With the fault context-login every private key wants a login for each operation.
std::string& UserPin() {
  static std::string pin;
  return pin;
}

std::set<CK_SESSION_HANDLE>& WaitingSessions() {
  static std::set<CK_SESSION_HANDLE> sessions;
  return sessions;
}

CK_RV ContextLogin(CK_SESSION_HANDLE session, const std::string& pin) {
  if (pin != UserPin()) return CKR_PIN_INCORRECT;
  return WaitingSessions().erase(session) == 1 ? CKR_OK : CKR_OPERATION_NOT_INITIALIZED;
}

}  // namespace

CK_RV Login(CK_SESSION_HANDLE session, CK_USER_TYPE user, CK_BYTE* pin, CK_ULONG size) {
  const bool is_context_login = user == CKU_CONTEXT_SPECIFIC;
  Note((LeavesCoreFiles() ? "core " : "") + std::string(is_context_login ? "context " : "") +
       "C_Login " + LabelOf(session));
  if (Is("hang-in-login")) Hang();
  const std::string text(reinterpret_cast<const char*>(pin), size);
  if (is_context_login && Is("context-login")) return ContextLogin(session, text);
  const CK_RV result = behind->C_Login(session, user, pin, size);
  if (result == CKR_OK) UserPin() = text;
  return result;
}

CK_RV Begun(CK_SESSION_HANDLE session, CK_RV result) {
  if (result == CKR_OK && Is("context-login")) WaitingSessions().insert(session);
  return result;
}

CK_RV Ended(CK_SESSION_HANDLE session, CK_ULONG* size, CK_RV result) {
  if (result != CKR_OK || WaitingSessions().erase(session) == 0) return result;
  *size = 0;
  return CKR_USER_NOT_LOGGED_IN;
}

}  // namespace kelvrin::fault
