// Operations beside a search, after a failure, and with keys that want a login of their own.
#include "p11/bringup.h"
#include "p11/lookup.h"
#include "modulecheck/private_keys.h"
#include "modulecheck/probes.h"

namespace kelvrin::modulecheck {
namespace {

std::optional<Key> FindSigner(const Module& module, CK_SESSION_HANDLE session) {
  std::optional<Key> key = FindPrivateKey(module, session, CKK_EC, CKA_SIGN);
  return key ? key : FindPrivateKey(module, session, CKK_RSA, CKA_SIGN);
}

Judgement NoKey() { return NotConcerned("no key of a certificate can sign"); }

}  // namespace

Judgement ProbeLoginState(Module& module) {
  CK_BBOOL required = CK_TRUE;
  const CK_RV result = login_required(module.p11(), module.session(), &required);
  if (result != CKR_OK) return Unmet("C_GetSessionInfo", result);
  if (required == CK_FALSE) return Met();
  return Unmet("C_GetSessionInfo", result, "the session does not say that it is logged in");
}

Judgement ProbeSignDuringSearch(Module& module) {
  const ProbeSession session(module);
  std::optional<Key> key = FindSigner(module, session.handle());
  if (!key) return NoKey();
  // The search stays open.
  const CK_RV result =
      get_priv_key(module.p11(), session.handle(), key->id.data(), key->id.size(), &key->handle);
  if (result != CKR_OK) return Unmet("C_FindObjectsInit", result);
  const OperationResult made = SignPlainly(module, session.handle(), *key);
  return made.result == CKR_OK ? Met() : made.Failed("while a search is open");
}

Judgement ProbeSignAfterFailure(Module& module) {
  const ProbeSession session(module);
  const std::optional<Key> key = FindSigner(module, session.handle());
  if (!key) return NoKey();
  SignPlainly(module, session.handle(), *key, 1);  // no signature fits
  const OperationResult made = SignPlainly(module, session.handle(), *key);
  return made.result == CKR_OK ? Met() : made.Failed("after a signature that found no room");
}

Judgement ProbeContextLogin(Module& module) {
  const ProbeSession session(module);
  for (const Key& key : FindContextLoginKeys(module, session.handle())) {
    const ProbeSession own(module);
    const OperationResult made = SignPlainly(module, own.handle(), key);
    if (made.result == CKR_OK) continue;
    return made.Failed("with " + NameOf(key.label, key.id) +
                       ", which wants a login for each operation");
  }
  return Met();
}

}  // namespace kelvrin::modulecheck
