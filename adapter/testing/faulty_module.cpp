// Libraries that are no proper PKCS#11 modules, one fault each.
#include <p11-kit/pkcs11.h>

#define KELVRIN_EXPORTED extern "C" __attribute__((visibility("default")))

#if defined(FAULT_NO_SYMBOL)
KELVRIN_EXPORTED int unrelated() { return 0; }
#else
KELVRIN_EXPORTED CK_RV C_GetFunctionList(CK_FUNCTION_LIST_PTR_PTR list) {
  static CK_FUNCTION_LIST empty = {};
  empty.version = {2, 40};
  *list = &empty;
#if defined(FAULT_FAILING)
  return CKR_FUNCTION_FAILED;
#elif defined(FAULT_NULL_LIST)
  *list = nullptr;
#elif defined(FAULT_VERSION_1)
  empty.version = {1, 0};
#endif
  return CKR_OK;
}
#endif
