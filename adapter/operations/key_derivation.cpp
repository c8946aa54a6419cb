#include "adapter/operations/key_derivation.h"

#include <array>
#include <optional>

#include "encoding/elliptic_curve.h"

namespace kelvrin::adapter {
namespace {

// One attempt. With `size` 0 the secret's length is left to the module.
CK_RV Derive(const CK_FUNCTION_LIST& inner, CK_SESSION_HANDLE session, CK_MECHANISM mechanism,
             CK_OBJECT_HANDLE base_key, CK_ULONG size, CK_OBJECT_HANDLE* key) {
  CK_OBJECT_CLASS object_class = CKO_SECRET_KEY;
  CK_KEY_TYPE key_type = CKK_GENERIC_SECRET;
  CK_BBOOL no = CK_FALSE;
  CK_BBOOL yes = CK_TRUE;
  std::array<CK_ATTRIBUTE, 6> attributes = {{
      {CKA_CLASS, &object_class, sizeof(object_class)},
      {CKA_KEY_TYPE, &key_type, sizeof(key_type)},
      {CKA_TOKEN, &no, sizeof(no)},
      {CKA_SENSITIVE, &no, sizeof(no)},
      {CKA_EXTRACTABLE, &yes, sizeof(yes)},
      {CKA_VALUE_LEN, &size, sizeof(size)},
  }};
  CK_OBJECT_HANDLE derived = CK_INVALID_HANDLE;
  const CK_RV result =
      inner.C_DeriveKey(session, &mechanism, base_key, attributes.data(),
                        size != 0 ? attributes.size() : attributes.size() - 1, &derived);
  if (result == CKR_OK) *key = derived;
  return result;
}

bool IsEcdh(const CK_MECHANISM& mechanism) {
  return mechanism.mechanism == CKM_ECDH1_DERIVE && mechanism.pParameter != nullptr &&
         mechanism.ulParameterLen == sizeof(CK_ECDH1_DERIVE_PARAMS);
}

}  // namespace

CK_RV DeriveReadableKey(const CK_FUNCTION_LIST& inner, CK_SESSION_HANDLE session,
                        const CK_MECHANISM& mechanism, CK_OBJECT_HANDLE base_key,
                        CK_OBJECT_HANDLE* key) {
  if (!IsEcdh(mechanism)) return Derive(inner, session, mechanism, base_key, 0, key);
  auto parameters = *static_cast<const CK_ECDH1_DERIVE_PARAMS*>(mechanism.pParameter);
  if (parameters.pPublicData == nullptr && parameters.ulPublicDataLen != 0) {
    return CKR_MECHANISM_PARAM_INVALID;
  }
  std::optional<encoding::PublicPoint> point =
      encoding::ReadPublicPoint({parameters.pPublicData, parameters.ulPublicDataLen});
  if (!point) return Derive(inner, session, mechanism, base_key, 0, key);

  CK_MECHANISM asked = {mechanism.mechanism, &parameters, sizeof(parameters)};
  parameters.pPublicData = point->raw.data();
  parameters.ulPublicDataLen = point->raw.size();
  const CK_RV result = Derive(inner, session, asked, base_key, point->size, key);
  if (result == CKR_OK) return result;
  parameters.pPublicData = point->der.data();
  parameters.ulPublicDataLen = point->der.size();
  const CK_RV second = Derive(inner, session, asked, base_key, point->size, key);
  // What the module said to the form that it should take tells more.
  return second == CKR_OK ? second : result;
}

void DestroyDerivedKey(const CK_FUNCTION_LIST& inner, CK_SESSION_HANDLE session,
                       CK_OBJECT_HANDLE key) {
  CK_OBJECT_CLASS object_class = CKO_VENDOR_DEFINED;
  CK_BBOOL is_on_token = CK_TRUE;
  std::array<CK_ATTRIBUTE, 2> attributes = {{
      {CKA_CLASS, &object_class, sizeof(object_class)},
      {CKA_TOKEN, &is_on_token, sizeof(is_on_token)},
  }};
  const CK_RV result =
      inner.C_GetAttributeValue(session, key, attributes.data(), attributes.size());
  if (result != CKR_OK || object_class != CKO_SECRET_KEY || is_on_token != CK_FALSE) return;
  inner.C_DestroyObject(session, key);
}

}  // namespace kelvrin::adapter
