#include "adapter/testing/watching_module.h"

#include "adapter/function_names.h"

namespace kelvrin::adapter {
namespace {

Watch watch;

template <auto Entry>
struct Watched;
template <typename... Arguments, CK_RV (*CK_FUNCTION_LIST::*Entry)(Arguments...)>
struct Watched<Entry> {
  static CK_RV Call(Arguments... arguments) {
    if (watch.inside++ != 0) ++watch.overlaps;
    const CK_RV result = (watch.behind->*Entry)(arguments...);
    --watch.inside;
    return result;
  }
};

CK_RV Initialize(void* arguments) {
  ++watch.initialised;
  return Watched<&CK_FUNCTION_LIST::C_Initialize>::Call(arguments);
}

CK_RV Finalize(void* reserved) {
  ++watch.finalised;
  return Watched<&CK_FUNCTION_LIST::C_Finalize>::Call(reserved);
}

CK_RV OpenSession(CK_SLOT_ID slot, CK_FLAGS flags, void* application, CK_NOTIFY notify,
                  CK_SESSION_HANDLE* session) {
  const CK_RV result =
      Watched<&CK_FUNCTION_LIST::C_OpenSession>::Call(slot, flags, application, notify, session);
  if (result == CKR_OK) ++watch.sessions;
  return result;
}

CK_RV CloseSession(CK_SESSION_HANDLE session) {
  const CK_RV result = Watched<&CK_FUNCTION_LIST::C_CloseSession>::Call(session);
  if (result == CKR_OK) --watch.sessions;
  return result;
}

CK_RV Sign(CK_SESSION_HANDLE session, CK_BYTE* data, CK_ULONG size, CK_BYTE* signature,
           CK_ULONG* signature_size) {
  const auto on_sign = watch.on_sign.load();
  if (on_sign != nullptr) on_sign();
  return Watched<&CK_FUNCTION_LIST::C_Sign>::Call(session, data, size, signature, signature_size);
}

CK_FUNCTION_LIST MakeList() {
  CK_FUNCTION_LIST list = {};
  list.version = {2, 40};
#define KELVRIN_WATCH(name) list.name = Watched<&CK_FUNCTION_LIST::name>::Call;
  KELVRIN_FOR_EACH_FUNCTION(KELVRIN_WATCH, KELVRIN_WATCH)
#undef KELVRIN_WATCH
  list.C_Initialize = Initialize;
  list.C_Finalize = Finalize;
  list.C_OpenSession = OpenSession;
  list.C_CloseSession = CloseSession;
  list.C_Sign = Sign;
  return list;
}

}  // namespace
}  // namespace kelvrin::adapter

extern "C" __attribute__((visibility("default"))) CK_RV
C_GetFunctionList(CK_FUNCTION_LIST_PTR_PTR list) {
  static CK_FUNCTION_LIST functions = kelvrin::adapter::MakeList();
  *list = &functions;
  return CKR_OK;
}

extern "C" __attribute__((visibility("default"))) kelvrin::adapter::Watch* kelvrin_watch() {
  return &kelvrin::adapter::watch;
}
