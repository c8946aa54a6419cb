#include "token/testing/replaced_p11.h"

namespace {

token_testing::ReplacedP11* current = nullptr;

}  // namespace

namespace token_testing {

ReplacedP11::ReplacedP11() { current = this; }
ReplacedP11::~ReplacedP11() { current = nullptr; }

}  // namespace token_testing

// The linker gives these names to what --wrap redirects.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {

CK_RV __real__Z4initPKcPPvPP17_CK_FUNCTION_LISTPmS6_S0_(const char* path, void** module,
                                                        CK_FUNCTION_LIST** p11, CK_SLOT_ID* slot,
                                                        CK_SESSION_HANDLE* session,
                                                        const char* reader_name);
CK_RV __real__Z14login_requiredP17_CK_FUNCTION_LISTmPh(CK_FUNCTION_LIST* p11,
                                                       CK_SESSION_HANDLE session,
                                                       CK_BBOOL* required);
size_t __real__Z11mech_to_strmPc(CK_MECHANISM_TYPE mechanism, char* name);
CK_RV __real__Z14C_UnloadModulePv(void* module);

CK_RV __wrap__Z4initPKcPPvPP17_CK_FUNCTION_LISTPmS6_S0_(const char* path, void** module,
                                                        CK_FUNCTION_LIST** p11, CK_SLOT_ID* slot,
                                                        CK_SESSION_HANDLE* session,
                                                        const char* reader_name) {
  if (current != nullptr && current->init) {
    return current->init(path, module, p11, slot, session, reader_name);
  }
  return __real__Z4initPKcPPvPP17_CK_FUNCTION_LISTPmS6_S0_(path, module, p11, slot, session,
                                                           reader_name);
}

CK_RV __wrap__Z14login_requiredP17_CK_FUNCTION_LISTmPh(CK_FUNCTION_LIST* p11,
                                                       CK_SESSION_HANDLE session,
                                                       CK_BBOOL* required) {
  if (current != nullptr && current->login_required) return current->login_required(required);
  return __real__Z14login_requiredP17_CK_FUNCTION_LISTmPh(p11, session, required);
}

size_t __wrap__Z11mech_to_strmPc(CK_MECHANISM_TYPE mechanism, char* name) {
  if (current != nullptr && current->before_mech_to_str) current->before_mech_to_str(name);
  return __real__Z11mech_to_strmPc(mechanism, name);
}

CK_RV __wrap__Z14C_UnloadModulePv(void* module) {
  if (current != nullptr && current->before_unload) current->before_unload(module);
  return __real__Z14C_UnloadModulePv(module);
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)
