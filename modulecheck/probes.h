// The probes, one for each thing that the extension expects of its module. Each leaves the token as
// it found it, and the module fit for the next probe as far as the module allows that.
#pragma once

#include "modulecheck/judgement.h"
#include "modulecheck/module.h"

namespace kelvrin::modulecheck {

using Probe = Judgement (*)(Module& module);

// Bringing up (bring_up_probes.cpp). The first two need nothing; all others a module that is
// initialised, and those below a token with a session.
Judgement ProbeInitialise(Module& module);
Judgement ProbeInitialiseAgain(Module& module);
Judgement ProbeReaderName(Module& module);
Judgement ProbeDescription(Module& module);
Judgement ProbeToken(Module& module);
Judgement ProbeCardNumber(Module& module);
Judgement ProbeFinalise(Module& module);

// Searches and reads (search_probes.cpp).
Judgement ProbeSecondSearch(Module& module);
Judgement ProbePublicKeys(Module& module);
Judgement ProbePrivateKeys(Module& module);  // logged in
Judgement ProbeFailedLengths(Module& module);
Judgement ProbeInvalidHandle(Module& module);

// Public keys (key_probes.cpp).
Judgement ProbeUsageFlags(Module& module);
Judgement ProbeEcUsage(Module& module);
Judgement ProbeAllowedMechanisms(Module& module);
Judgement ProbeRawRsaOffered(Module& module);

// Certificates (certificate_probes.cpp).
Judgement ProbeCertificates(Module& module);
Judgement ProbeCertificateLabels(Module& module);
Judgement ProbeCertificateSizes(Module& module);
Judgement ProbeCertificateOrder(Module& module);
Judgement ProbeCertificateKeys(Module& module);
Judgement ProbeSetUp(Module& module);

// Logged in: signing (ecdsa_probes.cpp, rsa_probes.cpp, operation_probes.cpp), decrypting
// (decryption_probes.cpp), key agreement (derivation_probes.cpp).
Judgement ProbeLoginState(Module& module);
Judgement ProbeEcdsaDer(Module& module);
Judgement ProbeEcdsaLongDigests(Module& module);
Judgement ProbeEcdsaSha1(Module& module);
Judgement ProbeRawRsaBlock(Module& module);
Judgement ProbeRawRsaShort(Module& module);
Judgement ProbeRawRsaTooLong(Module& module);
Judgement ProbeSignDuringSearch(Module& module);
Judgement ProbeSignAfterFailure(Module& module);
Judgement ProbeContextLogin(Module& module);
Judgement ProbeDecryptPkcs(Module& module);
Judgement ProbeDecryptRaw(Module& module);
// Makes a session object; only for the adapter, which cleans up.
Judgement ProbeDerivation(Module& module);

}  // namespace kelvrin::modulecheck
