// What the adapter changes in what the module shows: rules, each with a name by which the
// configuration switches it off.
#pragma once

#include <array>
#include <bitset>
#include <cstddef>
#include <string_view>

namespace kelvrin::adapter {

enum class Rule : unsigned {
  kAllowedMechanisms,       // a public key's mechanisms from its type and the slot's
  kEcUsage,                 // usage flags of EC public keys as the extension reads them
  kVirtualPublicKeys,       // a public key made from the certificate where there is none
  kEcdsa,                   // DER signatures, digests cut to the curve, finished SHA-1 digests
  kRawRsa,                  // raw RSA input padded to the modulus, refused when longer
  kMissingRawRsa,           // CKM_RSA_X_509 by CKM_RSA_PKCS where the module lacks it
  kDerivation,              // readable secrets from an empty template, one at a time
  kContextLogin,            // the login that some keys want for each operation
  kAsciiLabels,             // certificates' and public keys' labels in ASCII
  kOversizeCertificates,    // certificates longer than 4096 bytes are not shown
  kKeyedCertificatesFirst,  // certificates that have a key come first
  kKeylessCertificates,     // certificates that have no key are not shown
};

struct RuleName {
  Rule rule;
  std::string_view name;
};

// As the configuration spells them, in the enumeration's order.
inline constexpr std::array kRuleNames = {
    RuleName{Rule::kAllowedMechanisms, "allowed-mechanisms"},
    RuleName{Rule::kEcUsage, "ec-usage"},
    RuleName{Rule::kVirtualPublicKeys, "virtual-public-keys"},
    RuleName{Rule::kEcdsa, "ecdsa"},
    RuleName{Rule::kRawRsa, "raw-rsa"},
    RuleName{Rule::kMissingRawRsa, "missing-raw-rsa"},
    RuleName{Rule::kDerivation, "derivation"},
    RuleName{Rule::kContextLogin, "context-login"},
    RuleName{Rule::kAsciiLabels, "ascii-labels"},
    RuleName{Rule::kOversizeCertificates, "oversize-certificates"},
    RuleName{Rule::kKeyedCertificatesFirst, "keyed-certificates-first"},
    RuleName{Rule::kKeylessCertificates, "keyless-certificates"},
};

// The rules that apply: all of them unless one is switched off.
class Rules {
 public:
  Rules() { on_.set(); }
  bool Has(Rule rule) const { return on_.test(static_cast<std::size_t>(rule)); }
  void SwitchOff(Rule rule) { on_.reset(static_cast<std::size_t>(rule)); }

 private:
  std::bitset<kRuleNames.size()> on_;
};

}  // namespace kelvrin::adapter
