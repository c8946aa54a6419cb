// A whole PKCS#11 module in memory that does everything the extension wants of a module, and
// misbehaves in one way that a test chooses.
#ifndef KELVRIN_ADAPTER_TESTING_FAULT_MODULE_H_
#define KELVRIN_ADAPTER_TESTING_FAULT_MODULE_H_

#include <dlfcn.h>
#include <p11-kit/pkcs11.h>

#include <filesystem>
#include <stdexcept>
#include <string_view>

namespace kelvrin::adapter {

enum class Fault {
  kNone,
  kCannotLock,                // refuses the system's locks
  kNeedsToCreateThreads,      // the same, as it would have to create threads
  kWantsLocks,                // refuses to go without them
  kWantsReservedString,       // refuses to go without kReservedString
  kWantsReservedStringOnly,   // the same, and refuses locks
  kOneSearchAtATime,          // refuses a search while one is open
  kNoOperationDuringSearch,   // refuses to sign or decrypt while a search is open
  kStuckAfterFailure,         // after a failed operation the session refuses the next for ever
  kEmptyMechanismList,        // keys' allowed mechanisms are a list of none
  kNoMechanismList,           // keys have no allowed mechanisms, and the length is -1
  kLongMechanismList,         // keys have more than 20
  kEcKeysEncryptAndWrap,      // EC public keys say that they encrypt and wrap
  kEcKeysDoNotDerive,         // EC public keys say that they do not derive
  kNoPublicKeys,              // no public key objects
  kLengthMinusOne,            // -1 as the length of what could not be read
  kLengthUnchanged,           // the room as the length of what could not be read
  kRawEcdsa,                  // r and s one after the other in place of DER
  kRefusesLongDigests,        // digests longer than the curve's size
  kHashesDigests,             // CKM_ECDSA_SHA1 hashes what it gets
  kNoEcdsaSha1,               // neither offered nor served
  kRefusesShortBlocks,        // blocks shorter than the modulus
  kDiesOfLongBlocks,          // blocks longer than the modulus end the process
  kRefusesNullInput,          // a null pointer of length 0
  kWantsDeriveTemplate,       // refuses to derive with an empty template
  kSecretsAreSensitive,       // derived secrets cannot be read unless the template says so
  kRawPointsOnly,             // refuses DER points
  kDerPointsOnly,             // refuses raw points
  kFewObjects,                // no more than two derived keys at a time
  kSeveralSlots,              // the card's slot among others
  kNulPaddedDescription,      // the slot's description
  kBlankLabel,                // the token's label begins with a blank
  kKeysWantLogin,             // each signature and decryption wants its own login
  kNoRawRsa,                  // CKM_RSA_X_509 is neither offered nor served
  kUmlautInCertificateLabel,  // a certificate's label is not ASCII
  kUmlautInPublicKeyLabel,    // a public key's label is not ASCII
  kOversizeCertificate,       // one certificate has more than 4096 bytes
  kManyCertificatesOfOthers,  // 20 certificates of other people come first
  kCertificateOfAnAuthority,  // a CA's certificate without a key
  kRenewsHandles,             // private keys get new handles after each operation
};

inline constexpr std::string_view kReservedString = "where='here' flags=none";
inline constexpr std::string_view kPin = "123456";
inline constexpr CK_ULONG kObjectLimit = 2;

// How the module is to behave, and what it has seen.
struct FaultControl {
  Fault fault = Fault::kNone;   // to be set before C_Initialize
  bool is_pin_changed = false;  // kPin is the PIN no more
  int initialise_calls = 0;     // of C_Initialize
  bool is_locking = false;      // whether the last that succeeded asked for the system's locks
  int searches = 0;             // begun
  int derived_keys = 0;         // that there are now
  int operations = 0;           // signatures and decryptions begun
  int context_logins = 0;       // that succeeded
  int wrong_pins = 0;           // in logins of any kind
  int null_inputs = 0;          // null pointers as the input of a signature or decryption
};

// Loads the module and gives access to its control. Throws std::runtime_error.
inline FaultControl& LoadFaultModule(const std::filesystem::path& path) {
  void* const module = dlopen(path.c_str(), RTLD_NOW);
  if (module == nullptr) throw std::runtime_error(dlerror());
  const auto control = reinterpret_cast<FaultControl* (*)()>(dlsym(module, "kelvrin_faults"));
  if (control == nullptr) throw std::runtime_error("no fault module");
  return *control();
}

}  // namespace kelvrin::adapter

#endif  // KELVRIN_ADAPTER_TESTING_FAULT_MODULE_H_
