#include "modulecheck/expectations.h"

#include <algorithm>

namespace kelvrin::modulecheck {
namespace {

using adapter::Rule;

constexpr char kBringUp[] = "Bringing the module up";
constexpr char kSearches[] = "Searches and reads";
constexpr char kKeys[] = "Public keys";
constexpr char kCertificates[] = "Certificates";
constexpr char kLoggingIn[] = "Login";
constexpr char kSigning[] = "Signing";
constexpr char kDecrypting[] = "Decrypting";
constexpr char kAgreement[] = "Key agreement";

// What is known to end processes comes late: nothing behind it is judged then.
const std::vector<Expectation>& Table() {
  // clang-format off
  static const std::vector<Expectation> table = {
      {kInitialise, kBringUp,
       "C_Initialize(NULL) works",
       Needs::kNothing, ProbeInitialise, Help::kAlways, {},
       "Look in the module's documentation for a parameter string and add `reserved = ...` to the "
       "adapter's configuration (see --adapter-config)."},
      {"initialise-again", kBringUp,
       "a second C_Initialize(NULL) says that it is done already",
       Needs::kInitialised, ProbeInitialiseAgain, Help::kAlways},
      {"slot-description", kBringUp,
       "every slot has a description",
       Needs::kInitialised, ProbeDescription, Help::kAlways, {},
       "Put `any-reader = yes` into the adapter's configuration."},
      {"reader-name", kBringUp,
       "the configured reader name leads to a slot",
       Needs::kInitialised, ProbeReaderName, Help::kAlways, {},
       "Give --reader, and config.plist, one of the reader names that are listed."},
      {"token", kBringUp,
       "a session opens on the slot that the extension picks, on an initialised token",
       Needs::kInitialised, ProbeToken, Help::kAlways, {},
       "Insert a card, or choose the slot that has it by its reader name."},
      {kCardNumber, kBringUp,
       "the first word of the token's label can be the card's number: ASCII, with a digit",
       Needs::kToken, ProbeCardNumber, Help::kAlways, {},
       "Add `card-number = serial` to the adapter's configuration."},
      {kListing, kSearches,
       "what the card holds can be listed",
       Needs::kToken, nullptr, Help::kNone},
      {"second-search", kSearches,
       "a new search may begin while one is open",
       Needs::kToken, ProbeSecondSearch, Help::kAlways},
      {"failed-lengths", kSearches,
       "a read that fails leaves no length beyond the buffer",
       Needs::kToken, ProbeFailedLengths, Help::kAlways},
      {"invalid-handle", kSearches,
       "reading an object that is not there is refused",
       Needs::kToken, ProbeInvalidHandle, Help::kAlways},
      {"certificates", kCertificates,
       "there are certificates, and they can be read",
       Needs::kToken, ProbeCertificates, Help::kAlways, {},
       "Put a certificate for each key on the card: the extension shows nothing without."},
      {"certificate-sizes", kCertificates,
       "no certificate has more than 4096 bytes",
       Needs::kToken, ProbeCertificateSizes, Help::kByRules, {Rule::kOversizeCertificates},
       "Remove the certificate from the card."},
      {"certificate-ids", kCertificates,
       "no certificate's CKA_ID has more than 255 bytes",
       Needs::kToken, ProbeCertificateIds, Help::kAlways, {},
       "Remove the certificate from the card."},
      {"certificate-labels", kCertificates,
       "every certificate's label is ASCII",
       Needs::kToken, ProbeCertificateLabels, Help::kByRules, {Rule::kAsciiLabels},
       "Give the certificate a label in ASCII."},
      {"certificate-order", kCertificates,
       "the certificates that have a key are among the first 20",
       Needs::kToken, ProbeCertificateOrder, Help::kByRules,
       {Rule::kKeyedCertificatesFirst, Rule::kKeylessCertificates},
       "Remove certificates from the card."},
      {"certificate-keys", kCertificates,
       "every certificate has a key",
       Needs::kToken, ProbeCertificateKeys, Help::kByRules,
       {Rule::kKeylessCertificates, Rule::kVirtualPublicKeys},
       "Remove the certificate from the card, or pass over the key that will be shown."},
      {"public-keys", kKeys,
       "each certificate's public key is found by its CKA_ID without a login",
       Needs::kToken, ProbePublicKeys, Help::kByRules,
       {Rule::kVirtualPublicKeys, Rule::kKeylessCertificates},
       "Put the public key on the card under the certificate's CKA_ID."},
      {"usage-flags", kKeys,
       "CKA_VERIFY, CKA_ENCRYPT, CKA_WRAP and CKA_DERIVE of public keys can be read",
       Needs::kToken, ProbeUsageFlags, Help::kByRules, {Rule::kEcUsage, Rule::kVirtualPublicKeys},
       "Set the flags of the public key on the card."},
      {"ec-usage", kKeys,
       "EC public keys do not say that they encrypt or wrap",
       Needs::kToken, ProbeEcUsage, Help::kByRules, {Rule::kEcUsage},
       "Set CKA_ENCRYPT and CKA_WRAP of the public key to false."},
      {"allowed-mechanisms", kKeys,
       "public keys list 1 to 20 allowed mechanisms, CKM_RSA_X_509 or CKM_ECDSA among them",
       Needs::kToken, ProbeAllowedMechanisms, Help::kByRules, {Rule::kAllowedMechanisms},
       "Set CKA_ALLOWED_MECHANISMS when the key is made."},
      {"raw-rsa-offered", kKeys,
       "CKM_RSA_X_509 is there for RSA keys",
       Needs::kToken, ProbeRawRsaOffered, Help::kByRules, {Rule::kMissingRawRsa},
       "Use EC keys with this module."},
      {kSetUp, kCertificates,
       "the token's set-up, in the extension's own order, publishes keys",
       Needs::kToken, nullptr, Help::kAlways, {},
       "See what stands in its way above."},
      {kLogin, kLoggingIn,
       "C_Login takes the PIN",
       Needs::kToken, nullptr, Help::kNone},
      {"login-state", kLoggingIn,
       "the session says that it is logged in",
       Needs::kLogin, ProbeLoginState, Help::kNone},
      {"private-keys", kLoggingIn,
       "each certificate's private key is found by its CKA_ID after the login",
       Needs::kLogin, ProbePrivateKeys, Help::kByRules, {Rule::kKeylessCertificates},
       "Remove the certificate from the card, or pass over the key that will be shown."},
      {"sign-during-search", kSigning,
       "a key signs while a search is open",
       Needs::kLogin, ProbeSignDuringSearch, Help::kAlways},
      {"sign-after-failure", kSigning,
       "a key signs after an operation that failed",
       Needs::kLogin, ProbeSignAfterFailure, Help::kAlways},
      {"context-login", kSigning,
       "keys that want a login for each operation sign after the one login",
       Needs::kLogin, ProbeContextLogin, Help::kByRules, {Rule::kContextLogin},
       "The key cannot be used: the extension has the PIN at the login only."},
      {"raw-rsa-block", kSigning,
       "CKM_RSA_X_509 signs a block as long as the modulus",
       Needs::kLogin, ProbeRawRsaBlock, Help::kByRules, {Rule::kRawRsa, Rule::kMissingRawRsa},
       "Use EC keys with this module."},
      {"raw-rsa-short", kSigning,
       "CKM_RSA_X_509 signs what is shorter, padded with zeros on the left",
       Needs::kLogin, ProbeRawRsaShort, Help::kByRules, {Rule::kRawRsa}},
      {"ecdsa-der", kSigning,
       "CKM_ECDSA signatures are DER",
       Needs::kLogin, ProbeEcdsaDer, Help::kByRules, {Rule::kEcdsa},
       "Use RSA keys with this module."},
      {"ecdsa-long-digests", kSigning,
       "CKM_ECDSA takes digests longer than the curve's size",
       Needs::kLogin, ProbeEcdsaLongDigests, Help::kByRules, {Rule::kEcdsa},
       "Use SHA-256 with this key."},
      {"ecdsa-sha1", kSigning,
       "CKM_ECDSA_SHA1 signs a digest that is finished",
       Needs::kLogin, ProbeEcdsaSha1, Help::kByRules, {Rule::kEcdsa},
       "Use SHA-256 with this key."},
      {"decrypt-pkcs1", kDecrypting,
       "CKM_RSA_PKCS decrypts",
       Needs::kLogin, ProbeDecryptPkcs, Help::kNone},
      {"decrypt-raw", kDecrypting,
       "CKM_RSA_X_509 decrypts to a block as long as the modulus",
       Needs::kLogin, ProbeDecryptRaw, Help::kByRules, {Rule::kRawRsa, Rule::kMissingRawRsa}},
      {"derivation", kAgreement,
       "C_DeriveKey with an empty template gives a secret that can be read",
       Needs::kLoginToAdapter, ProbeDerivation, Help::kByRules, {Rule::kDerivation},
       "Do without key agreement."},
      {"raw-rsa-too-long", kSigning,
       "CKM_RSA_X_509 refuses what is longer than the modulus",
       Needs::kLogin, ProbeRawRsaTooLong, Help::kByRules, {Rule::kRawRsa}},
      {"finalise", kBringUp,
       "C_Finalize works",
       Needs::kInitialised, ProbeFinalise, Help::kNone},
  };
  // clang-format on
  return table;
}

}  // namespace

std::span<const Expectation> Expectations() { return Table(); }

bool NeedsLogin(const Expectation& expectation) {
  return expectation.name == kLogin || expectation.needs == Needs::kLogin ||
         expectation.needs == Needs::kLoginToAdapter;
}

std::vector<std::string> RuleNames(const Expectation& expectation) {
  std::vector<std::string> names;
  for (const adapter::RuleName& known : adapter::kRuleNames) {
    if (std::ranges::find(expectation.rules, known.rule) != expectation.rules.end()) {
      names.emplace_back(known.name);
    }
  }
  return names;
}

}  // namespace kelvrin::modulecheck
