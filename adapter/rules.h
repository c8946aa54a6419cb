// What the adapter does beside handing calls on: rules, each with a name by which the configuration
// switches it off.
#ifndef KELVRIN_ADAPTER_RULES_H_
#define KELVRIN_ADAPTER_RULES_H_

#include <array>
#include <bitset>
#include <cstddef>
#include <string_view>

namespace kelvrin::adapter {

enum class Rule : unsigned {
  kInitialisation,          // initialise with the system's locks, without if refused
  kFinishedSearches,        // no search of the module's stays open
  kWorkerSessions,          // sign and decrypt on a session of the adapter's own
  kAllowedMechanisms,       // a public key's mechanisms from its type and the slot's
  kEcUsage,                 // usage flags of EC public keys as the extension reads them
  kVirtualPublicKeys,       // a public key made from the certificate where there is none
  kFailedLengths,           // length 0 instead of -1 after a failed read
  kEcdsa,                   // DER signatures, digests cut to the curve, finished SHA-1 digests
  kRawRsa,                  // raw RSA input padded to the modulus, refused when longer
  kDerivation,              // readable secrets from an empty template, one at a time
  kOneSlot,                 // one slot, named as configured
  kContextLogin,            // the login that some keys want for each operation
  kMissingRawRsa,           // CKM_RSA_X_509 by CKM_RSA_PKCS where the module lacks it
  kAsciiLabels,             // certificates' labels in ASCII
  kOversizeCertificates,    // certificates longer than 4096 bytes are not shown
  kKeyedCertificatesFirst,  // certificates that have a key come first
  kKeylessCertificates,     // certificates that have no key are not shown
  kSearchMemory,            // searches for class and CKA_ID answered from memory
  kRenewedHandles,          // a key that changed is searched for once more
};
inline constexpr std::size_t kRuleCount = 19;

struct RuleName {
  Rule rule;
  std::string_view name;
};

// As the configuration spells them, in the enumeration's order.
inline constexpr std::array<RuleName, kRuleCount> kRuleNames = {{
    {Rule::kInitialisation, "initialisation"},
    {Rule::kFinishedSearches, "finished-searches"},
    {Rule::kWorkerSessions, "worker-sessions"},
    {Rule::kAllowedMechanisms, "allowed-mechanisms"},
    {Rule::kEcUsage, "ec-usage"},
    {Rule::kVirtualPublicKeys, "virtual-public-keys"},
    {Rule::kFailedLengths, "failed-lengths"},
    {Rule::kEcdsa, "ecdsa"},
    {Rule::kRawRsa, "raw-rsa"},
    {Rule::kDerivation, "derivation"},
    {Rule::kOneSlot, "one-slot"},
    {Rule::kContextLogin, "context-login"},
    {Rule::kMissingRawRsa, "missing-raw-rsa"},
    {Rule::kAsciiLabels, "ascii-labels"},
    {Rule::kOversizeCertificates, "oversize-certificates"},
    {Rule::kKeyedCertificatesFirst, "keyed-certificates-first"},
    {Rule::kKeylessCertificates, "keyless-certificates"},
    {Rule::kSearchMemory, "search-memory"},
    {Rule::kRenewedHandles, "renewed-handles"},
}};

// The rules that apply.
class Rules {
 public:
  // All of them: what the extension needs.
  static Rules Extension() {
    Rules rules;
    rules.on_.set();
    return rules;
  }
  // Those that no caller that keeps to the standard can notice.
  static Rules Standard() {
    Rules rules;
    for (const Rule rule : {Rule::kInitialisation, Rule::kFinishedSearches, Rule::kWorkerSessions,
                            Rule::kSearchMemory}) {
      rules.on_.set(static_cast<std::size_t>(rule));
    }
    return rules;
  }

  bool Has(Rule rule) const { return on_.test(static_cast<std::size_t>(rule)); }
  void SwitchOff(Rule rule) { on_.reset(static_cast<std::size_t>(rule)); }

 private:
  std::bitset<kRuleCount> on_;
};

}  // namespace kelvrin::adapter

#endif  // KELVRIN_ADAPTER_RULES_H_
