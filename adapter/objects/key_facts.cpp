#include "adapter/objects/key_facts.h"

#include <algorithm>
#include <cstring>

#include "adapter/inner/object_reading.h"
#include "adapter/objects/allowed_mechanisms.h"
#include "encoding/elliptic_curve.h"

namespace kelvrin::adapter {
namespace {

// More room, to see that a list is too long.
constexpr std::size_t kMechanismRoom = 128 * sizeof(CK_MECHANISM_TYPE);
constexpr std::size_t kMaxParameters = 1024;

// A list that names neither says nothing of the two.
bool LacksRawRsa(const Mechanisms& list) {
  return !Contains(list, CKM_RSA_X_509) && Contains(list, CKM_RSA_PKCS);
}

std::size_t ModulusSize(const CK_FUNCTION_LIST& inner, CK_SESSION_HANDLE session,
                        CK_OBJECT_HANDLE key) {
  const auto modulus = ReadAttribute(inner, session, key, CKA_MODULUS, kMaxModulus);
  if (!modulus) return 0;
  const auto first =
      std::find_if(modulus->begin(), modulus->end(), [](CK_BYTE b) { return b != 0; });
  return static_cast<std::size_t>(modulus->end() - first);
}

bool WantsLogin(const CK_FUNCTION_LIST& inner, CK_SESSION_HANDLE session, CK_OBJECT_HANDLE key) {
  const auto flag = ReadAttribute(inner, session, key, CKA_ALWAYS_AUTHENTICATE, sizeof(CK_BBOOL));
  return flag && flag->size() == sizeof(CK_BBOOL) && flag->front() != CK_FALSE;
}

}  // namespace

Mechanisms ReadAllowedMechanisms(const CK_FUNCTION_LIST& inner, CK_SESSION_HANDLE session,
                                 CK_OBJECT_HANDLE key) {
  const auto bytes = ReadAttribute(inner, session, key, CKA_ALLOWED_MECHANISMS, kMechanismRoom);
  if (!bytes || bytes->empty() || bytes->size() % sizeof(CK_MECHANISM_TYPE) != 0 ||
      bytes->size() > kMaxAllowedMechanisms * sizeof(CK_MECHANISM_TYPE)) {
    return {};
  }
  Mechanisms list(bytes->size() / sizeof(CK_MECHANISM_TYPE));
  std::memcpy(list.data(), bytes->data(), bytes->size());
  return list;
}

KeyFacts ReadKeyFacts(const CK_FUNCTION_LIST& inner, CK_SESSION_HANDLE session,
                      CK_OBJECT_HANDLE key, bool is_rsa, const Mechanisms& offered) {
  KeyFacts facts;
  facts.wants_login = WantsLogin(inner, session, key);
  if (is_rsa) {
    facts.size = ModulusSize(inner, session, key);
    facts.lacks_raw_rsa =
        LacksRawRsa(offered) || LacksRawRsa(ReadAllowedMechanisms(inner, session, key));
    return facts;
  }
  const auto parameters = ReadAttribute(inner, session, key, CKA_EC_PARAMS, kMaxParameters);
  if (parameters) facts.size = encoding::CurveSize(*parameters);
  return facts;
}

}  // namespace kelvrin::adapter
