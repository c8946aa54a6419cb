// The probes, one for each thing that the extension expects of its module. Each leaves the token as
// it found it, and the module fit for the next probe as far as the module allows that.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "modulecheck/judgement.h"
#include "modulecheck/module.h"
#include "modulecheck/objects.h"

namespace kelvrin::modulecheck {

struct ProbeContext {
  Module& module;
  // What the card shows, once it was read; the worker forgets it where it may be something else.
  std::unique_ptr<Contents>& known;
  // One key or certificate that fails fails the expectation: the adapter may help it.
  bool is_strict = false;
  std::vector<std::string> warnings = {};

  // Throws CallFailed.
  const Contents& contents() {
    if (known == nullptr) known = std::make_unique<Contents>(module);
    return *known;
  }
};

using Probe = Judgement(ProbeContext& context);

// Judges each of the keys or certificates; `none` says that there is none. One that fails among
// others that do not is an odd one and becomes a warning, where the context is not strict.
template <typename Items, typename JudgeOne>
Judgement JudgeEach(ProbeContext& context, const Items& items, const char* none,
                    JudgeOne judge_one) {
  if (items.empty()) return NotConcerned(none);
  std::vector<Judgement> failed;
  for (const auto& item : items) {
    Judgement one = judge_one(item);
    if (one.outcome == Outcome::kUnmet) failed.push_back(std::move(one));
  }
  if (failed.empty()) return Met();
  if (context.is_strict || failed.size() == items.size()) return failed.front();
  for (const Judgement& one : failed) context.warnings.push_back("not so for all: " + Seen(one));
  return Met();
}

// Bringing up (bring_up_probes.cpp). The first two need nothing; all others a module that is
// initialised, and those below a token with a session.
Probe ProbeInitialise, ProbeInitialiseAgain, ProbeReaderName, ProbeDescription, ProbeToken,
    ProbeCardNumber, ProbeFinalise;

// Searches and reads (search_probes.cpp); private keys want a login.
Probe ProbeSecondSearch, ProbePublicKeys, ProbePrivateKeys, ProbeFailedLengths, ProbeInvalidHandle;

// Public keys (key_probes.cpp).
Probe ProbeUsageFlags, ProbeEcUsage, ProbeAllowedMechanisms, ProbeRawRsaOffered;

// Certificates (certificate_probes.cpp).
Probe ProbeCertificates, ProbeCertificateLabels, ProbeCertificateSizes, ProbeCertificateIds,
    ProbeCertificateOrder, ProbeCertificateKeys;

// Logged in: signing (signing_probes.cpp), decrypting and key agreement (decryption_probes.cpp).
Probe ProbeLoginState, ProbeSignDuringSearch, ProbeSignAfterFailure, ProbeContextLogin,
    ProbeRawRsaBlock, ProbeRawRsaShort, ProbeRawRsaTooLong, ProbeEcdsaDer, ProbeEcdsaLongDigests,
    ProbeEcdsaSha1, ProbeDecryptPkcs, ProbeDecryptRaw, ProbeDerivation;

}  // namespace kelvrin::modulecheck
