#include "adapter/objects/allowed_mechanisms.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>

namespace kelvrin::adapter {
namespace {

struct Row {
  CK_KEY_TYPE key_type;
  CK_MECHANISM_TYPE mechanism;
  CK_MECHANISM_TYPE served_by;
  std::optional<Rule> rule;    // by which it is served
  std::optional<Rule> unless;  // the rule by which it is not
};
constexpr std::array<Row, 7> kRows = {{
    {CKK_RSA, CKM_RSA_X_509, CKM_RSA_X_509, std::nullopt, std::nullopt},
    {CKK_RSA, CKM_RSA_X_509, CKM_RSA_PKCS, Rule::kMissingRawRsa, std::nullopt},
    {CKK_RSA, CKM_RSA_PKCS, CKM_RSA_PKCS, std::nullopt, std::nullopt},
    {CKK_EC, CKM_ECDSA, CKM_ECDSA, std::nullopt, std::nullopt},
    {CKK_EC, CKM_ECDSA_SHA1, CKM_ECDSA, Rule::kEcdsa, std::nullopt},
    // With the rule it takes a digest, which the module's own would hash again.
    {CKK_EC, CKM_ECDSA_SHA1, CKM_ECDSA_SHA1, std::nullopt, Rule::kEcdsa},
    {CKK_EC, CKM_ECDH1_DERIVE, CKM_ECDH1_DERIVE, std::nullopt, std::nullopt},
}};

bool Applies(const Row& row, const Rules& rules) {
  return (!row.rule || rules.Has(*row.rule)) && (!row.unless || !rules.Has(*row.unless));
}

}  // namespace

bool Contains(const Mechanisms& list, CK_MECHANISM_TYPE mechanism) {
  return std::find(list.begin(), list.end(), mechanism) != list.end();
}

Mechanisms UsableMechanisms(const Rules& rules, CK_KEY_TYPE key_type, const Mechanisms& offered) {
  Mechanisms usable;
  for (const Row& row : kRows) {
    if (row.key_type != key_type || !Applies(row, rules)) continue;
    if (!Contains(offered, row.served_by) || Contains(usable, row.mechanism)) continue;
    usable.push_back(row.mechanism);
  }
  return usable;
}

Mechanisms CompleteMechanisms(const Rules& rules, const Mechanisms& own) {
  Mechanisms completed = own;
  if (rules.Has(Rule::kEcdsa) && !Contains(own, CKM_ECDSA)) std::erase(completed, CKM_ECDSA_SHA1);
  for (const Row& row : kRows) {
    if (!row.rule || !rules.Has(*row.rule) || completed.size() == kMaxAllowedMechanisms) continue;
    if (!Contains(own, row.served_by) || Contains(completed, row.mechanism)) continue;
    completed.push_back(row.mechanism);
  }
  return completed;
}

}  // namespace kelvrin::adapter
