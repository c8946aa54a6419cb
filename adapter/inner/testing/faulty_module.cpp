// Libraries that hand out no proper PKCS#11 function list, one fault each.
#include <p11-kit/pkcs11.h>

extern "C" __attribute__((visibility("default"))) CK_RV
C_GetFunctionList(CK_FUNCTION_LIST_PTR_PTR list) {
  static CK_FUNCTION_LIST empty = {};
  empty.version = {2, 40};
  *list = &empty;
#if defined(FAULT_NULL_LIST)
  *list = nullptr;
#elif defined(FAULT_VERSION_1)
  empty.version = {1, 0};
#endif
  return CKR_OK;
}
