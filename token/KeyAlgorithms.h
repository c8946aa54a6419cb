// The platform's key algorithms: their PKCS#11 mechanisms, and their names for the log.
#pragma once

#import <CryptoTokenKit/CryptoTokenKit.h>
#include <p11-kit/pkcs11.h>

// What get_mechanism returns for an algorithm without a mechanism.
constexpr CK_MECHANISM_TYPE kNoMechanism = static_cast<CK_MECHANISM_TYPE>(-1);

// Returns the mechanism of an algorithm, whatever the operation, or kNoMechanism.
CK_MECHANISM_TYPE get_mechanism(TKTokenKeyAlgorithm* algorithm);

// Returns the name of the platform's constant that the algorithm matches, or "Unknown algorithm".
// The text is static. Stands in KeyAlgorithmNames.mm.
const char* algo_to_str(TKTokenKeyAlgorithm* algorithm);
