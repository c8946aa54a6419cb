// Ways in which real PKCS#11 modules differ from the standard, or from what a caller would like.
// Each function gives the memory module one of them, on top of those that it has already; Reset
// takes them away. What is not here is a change of the card: its mechanisms, attributes, flags,
// handles (MemoryCard::Rehandle), MemoryKeyOptions, MemoryModule::keeps_sessions.
#pragma once

#include <p11-kit/pkcs11.h>

#include <functional>
#include <string>

#include "tests/module/memory_module.h"

namespace kelvrin::faults {

// --- coming up and going down ---

// C_Initialize answers `refusal` unless CKF_OS_LOCKING_OK is set.
void WantsLocks(MemoryModule& module, CK_RV refusal = CKR_ARGUMENTS_BAD);
// C_Initialize answers `refusal` when CKF_OS_LOCKING_OK is set.
void RefusesLocks(MemoryModule& module, CK_RV refusal = CKR_CANT_LOCK);
// C_Initialize answers CKR_ARGUMENTS_BAD unless pReserved is this text.
void WantsReserved(MemoryModule& module, const std::string& text);
// Initialised with CKF_OS_LOCKING_OK, the module waits for ever on its own lock in the first call
// that finds a card pulled, as OpenSC does: the process is ended there, with a line that says so.
void HangsWithLocks(MemoryModule& module);
// The first C_Finalize answers CKR_GENERAL_ERROR and leaves all as it is, the login too.
void FinalizeFailsOnce(MemoryModule& module);
// C_OpenSession with CKF_RW_SESSION answers CKR_TOKEN_WRITE_PROTECTED.
void RefusesWriting(MemoryModule& module);
// The first C_GetMechanismList answers CKR_OK and a list of none.
void EmptyMechanismListOnce(MemoryModule& module);

// --- searches and attributes ---

// C_SignInit and C_DecryptInit answer CKR_OPERATION_ACTIVE while a search is open in their session,
// as SoftHSM2 does.
void OperationsWaitForSearch(MemoryModule& module);
// A search that is open is ended by the next one, as NSS does.
void SearchReplacesSearch(MemoryModule& module);
// No search finds a public key.
void HidesPublicKeys(MemoryModule& module);
// Every attribute that is read passes through `spoil`, which may change it and its result; `room`
// is the length that the caller gave.
using Spoil =
    std::function<CK_RV(const MemoryObject* object, CK_ATTRIBUTE& attribute, CK_ULONG room, CK_RV)>;
void Spoils(MemoryModule& module, const Spoil& spoil);
// CKA_ALLOWED_MECHANISMS answers CKR_ATTRIBUTE_TYPE_INVALID and a length of -1.
void NoAllowedMechanisms(MemoryModule& module);
// Reading this attribute succeeds, with a length of -1.
void ReadsLengthMinusOne(MemoryModule& module, CK_ATTRIBUTE_TYPE type);
// The length of what could not be read is the room that the caller gave.
void LeavesLengths(MemoryModule& module);
// Numbers are read only into a room of exactly their size, as NSS does; else CKR_BUFFER_TOO_SMALL.
void WantsExactRoom(MemoryModule& module);

// --- operations ---

// A failed C_Sign or C_Decrypt leaves the operation active, so that the next Init in that session
// answers CKR_OPERATION_ACTIVE.
void FailureLeavesOperation(MemoryModule& module);
// CKM_ECDSA takes digests of 32 bytes only; else CKR_DATA_LEN_RANGE.
void ExactDigestsOnly(MemoryModule& module);
// CKM_ECDSA signatures are DER.
void DerSignatures(MemoryModule& module);
// CKM_RSA_X_509 takes blocks as long as the modulus only; else CKR_FUNCTION_FAILED.
void RefusesShortBlocks(MemoryModule& module);
// A null pointer as input answers CKR_ARGUMENTS_BAD, its length 0 or not.
void RefusesNullInput(MemoryModule& module);
// RSA signatures and decrypted CKM_RSA_X_509 blocks come without their leading zeros: the signature
// of a CKM_RSA_X_509 block that is the number 1 is one byte.
void DropsLeadingZeros(MemoryModule& module);
// Each C_Sign and C_Decrypt gives the private keys new handles.
void RenewsHandles(MemoryModule& module);

// --- derivation ---

// C_DeriveKey with an empty template answers `refusal` (CKR_ARGUMENTS_BAD: SoftHSM2;
// CKR_TEMPLATE_INCOMPLETE: NSS).
void WantsDeriveTemplate(MemoryModule& module, CK_RV refusal = CKR_ARGUMENTS_BAD);
// Derived secrets are sensitive unless the template says otherwise.
void SecretsAreSensitive(MemoryModule& module);
// C_DeriveKey takes points of this length only (65: raw, 67: DER); else
// CKR_MECHANISM_PARAM_INVALID.
void PointsOfLength(MemoryModule& module, CK_ULONG length);
// With this many derived keys there, the next answers CKR_DEVICE_MEMORY.
void RoomForDerivedKeys(MemoryModule& module, std::size_t most);

}  // namespace kelvrin::faults
