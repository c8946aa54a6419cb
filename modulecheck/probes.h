// The probes, one for each thing that the extension expects of its module. Each leaves the token as
// it found it, and the module fit for the next probe as far as the module allows that.
#pragma once

#include <string>
#include <vector>

#include "modulecheck/judgement.h"
#include "modulecheck/module.h"

namespace kelvrin::modulecheck {

struct ProbeContext {
  Module& module;
  // One key or certificate that fails fails the expectation: the adapter may help it.
  bool is_strict = false;
  std::vector<std::string> warnings = {};
};

using Probe = Judgement (*)(ProbeContext& context);

// Judges each of the keys or certificates, of which there is one at least. One that fails among
// others that do not is an odd one and becomes a warning, where the context is not strict.
template <typename Items, typename JudgeOne>
Judgement JudgeEach(ProbeContext& context, const Items& items, JudgeOne judge_one) {
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
Judgement ProbeInitialise(ProbeContext& context);
Judgement ProbeInitialiseAgain(ProbeContext& context);
Judgement ProbeReaderName(ProbeContext& context);
Judgement ProbeDescription(ProbeContext& context);
Judgement ProbeToken(ProbeContext& context);
Judgement ProbeCardNumber(ProbeContext& context);
Judgement ProbeFinalise(ProbeContext& context);

// Searches and reads (search_probes.cpp).
Judgement ProbeSecondSearch(ProbeContext& context);
Judgement ProbePublicKeys(ProbeContext& context);
Judgement ProbePrivateKeys(ProbeContext& context);  // logged in
Judgement ProbeFailedLengths(ProbeContext& context);
Judgement ProbeInvalidHandle(ProbeContext& context);

// Public keys (key_probes.cpp).
Judgement ProbeUsageFlags(ProbeContext& context);
Judgement ProbeEcUsage(ProbeContext& context);
Judgement ProbeAllowedMechanisms(ProbeContext& context);
Judgement ProbeRawRsaOffered(ProbeContext& context);

// Certificates (certificate_probes.cpp).
Judgement ProbeCertificates(ProbeContext& context);
Judgement ProbeCertificateLabels(ProbeContext& context);
Judgement ProbeCertificateSizes(ProbeContext& context);
Judgement ProbeCertificateIds(ProbeContext& context);
Judgement ProbeCertificateOrder(ProbeContext& context);
Judgement ProbeCertificateKeys(ProbeContext& context);

// Logged in: signing (signing_probes.cpp), decrypting and key agreement (decryption_probes.cpp).
Judgement ProbeLoginState(ProbeContext& context);
Judgement ProbeSignDuringSearch(ProbeContext& context);
Judgement ProbeSignAfterFailure(ProbeContext& context);
Judgement ProbeContextLogin(ProbeContext& context);
Judgement ProbeRawRsaBlock(ProbeContext& context);
Judgement ProbeRawRsaShort(ProbeContext& context);
Judgement ProbeRawRsaTooLong(ProbeContext& context);
Judgement ProbeEcdsaDer(ProbeContext& context);
Judgement ProbeEcdsaLongDigests(ProbeContext& context);
Judgement ProbeEcdsaSha1(ProbeContext& context);
Judgement ProbeDecryptPkcs(ProbeContext& context);
Judgement ProbeDecryptRaw(ProbeContext& context);
Judgement ProbeDerivation(ProbeContext& context);

}  // namespace kelvrin::modulecheck
