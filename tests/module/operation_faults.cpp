// Faults of operations and derivations.
#include <algorithm>
#include <cstring>

#include "tests/module/fault_chain.h"
#include "tests/module/faults.h"
#include "tests/module/test_keys.h"

namespace kelvrin::faults {
namespace {

constexpr CK_ULONG kModulus = 256;
constexpr CK_ULONG kDigest = 32;

// What the session is about to do; type -1 when nothing.
MemoryOperation OperationOf(MemoryModule& module, CK_SESSION_HANDLE handle) {
  const MemorySession* const session = module.FindSession(handle);
  const bool is_active = session != nullptr && session->operation.has_value();
  return is_active ? *session->operation : MemoryOperation{.mechanism = CK_UNAVAILABLE_INFORMATION};
}

// C_Sign and C_Decrypt become fault(operation, next, session, input, size, output, output_size).
template <typename Fault>
void ChainResults(MemoryModule& module, Fault fault) {
  const auto run = [&module, fault](auto next, CK_SESSION_HANDLE session, auto... others) {
    return CK_RV{fault(OperationOf(module, session), next, session, others...)};
  };
  Chain<&MemoryEntries::C_Sign>(module, run);
  Chain<&MemoryEntries::C_Decrypt>(module, run);
}

// The same for inputs that are refused: refuse(operation, input, size) says how, or CKR_OK.
template <typename Refuse>
void Refuses(MemoryModule& module, Refuse refuse) {
  ChainResults(module, [&module, refuse](const MemoryOperation& operation, auto next,
                                         CK_SESSION_HANDLE session, CK_BYTE* input, CK_ULONG size,
                                         auto... others) {
    const CK_RV refusal = refuse(operation, input, size);
    if (refusal == CKR_OK) return next(session, input, size, others...);
    if (MemorySession* const open = module.FindSession(session)) open->operation.reset();
    return refusal;
  });
}

}  // namespace

void FailureLeavesOperation(MemoryModule& module) {
  ChainResults(module, [&module](const MemoryOperation& operation, auto next,
                                 CK_SESSION_HANDLE session, auto... others) {
    const CK_RV result = next(session, others...);
    MemorySession* const open = module.FindSession(session);
    const bool was_active = operation.mechanism != CK_UNAVAILABLE_INFORMATION;
    if (result != CKR_OK && open != nullptr && was_active) open->operation = operation;
    return result;
  });
}

void ExactDigestsOnly(MemoryModule& module) {
  Refuses(module, [](const MemoryOperation& operation, const CK_BYTE*, CK_ULONG size) -> CK_RV {
    return operation.mechanism == CKM_ECDSA && size != kDigest ? CKR_DATA_LEN_RANGE : CKR_OK;
  });
}

void RefusesShortBlocks(MemoryModule& module) {
  Refuses(module, [](const MemoryOperation& operation, const CK_BYTE*, CK_ULONG size) -> CK_RV {
    const bool is_short = operation.mechanism == CKM_RSA_X_509 && size < kModulus;
    return is_short ? CKR_FUNCTION_FAILED : CKR_OK;
  });
}

void RefusesNullInput(MemoryModule& module) {
  Refuses(module, [](const MemoryOperation&, const CK_BYTE* input, CK_ULONG) -> CK_RV {
    return input == nullptr ? CKR_ARGUMENTS_BAD : CKR_OK;
  });
}

void DerSignatures(MemoryModule& module) {
  ChainResults(module,
               [](const MemoryOperation& operation, auto next, CK_SESSION_HANDLE session,
                  CK_BYTE* input, CK_ULONG size, CK_BYTE* output, CK_ULONG* output_size) -> CK_RV {
                 const bool is_ecdsa =
                     operation.mechanism == CKM_ECDSA || operation.mechanism == CKM_ECDSA_SHA1;
                 const CK_ULONG room = *output_size;
                 const CK_RV result = next(session, input, size, output, output_size);
                 if (result != CKR_OK || !is_ecdsa) return result;
                 constexpr CK_ULONG kMostDer = 72;
                 if (output == nullptr) return *output_size = kMostDer, CKR_OK;
                 const auto der = DerEcdsa({output, output + *output_size});
                 *output_size = der.size();
                 if (room < der.size()) return CKR_BUFFER_TOO_SMALL;
                 std::copy(der.begin(), der.end(), output);
                 return CKR_OK;
               });
}

void DropsLeadingZeros(MemoryModule& module) {
  ChainResults(module, [](const MemoryOperation& operation, auto next, CK_SESSION_HANDLE session,
                          CK_BYTE* input, CK_ULONG size, CK_BYTE* output, CK_ULONG* output_size) {
    const CK_RV result = next(session, input, size, output, output_size);
    const bool is_block = operation.mechanism == CKM_RSA_X_509 ||
                          (operation.mechanism == CKM_RSA_PKCS && operation.is_signature);
    if (result != CKR_OK || !is_block || output == nullptr) return result;
    CK_BYTE* const end = output + *output_size;
    CK_BYTE* const first = std::find_if(output, end, [](auto byte) { return byte; });
    std::memmove(output, first, static_cast<std::size_t>(end - first));
    *output_size = static_cast<CK_ULONG>(end - first);
    return result;
  });
}

void RenewsHandles(MemoryModule& module) {
  ChainResults(module, [&module](const MemoryOperation&, auto next, auto... arguments) {
    const CK_RV result = next(arguments...);
    for (MemoryCard& card : module.cards) {
      std::vector<CK_OBJECT_HANDLE> keys;
      for (const auto& [handle, object] : card.objects) {
        if (object.key != nullptr) keys.push_back(handle);
      }
      for (const CK_OBJECT_HANDLE key : keys) card.Rehandle(key, module.next_object++);
    }
    return result;
  });
}

void WantsDeriveTemplate(MemoryModule& module, CK_RV refusal) {
  Chain<&MemoryEntries::C_DeriveKey>(
      module, [=](auto next, CK_SESSION_HANDLE session, CK_MECHANISM* mechanism,
                  CK_OBJECT_HANDLE base, CK_ATTRIBUTE* attributes, CK_ULONG count, auto* key) {
        return count == 0 ? refusal : next(session, mechanism, base, attributes, count, key);
      });
}

void SecretsAreSensitive(MemoryModule& module) {
  Chain<&MemoryEntries::C_DeriveKey>(
      module, [&module](auto next, CK_SESSION_HANDLE session, CK_MECHANISM* mechanism,
                        CK_OBJECT_HANDLE base, CK_ATTRIBUTE* attributes, CK_ULONG count,
                        CK_OBJECT_HANDLE* key) {
        const CK_RV result = next(session, mechanism, base, attributes, count, key);
        if (result == CKR_OK) {
          module.FindObject(session, *key)
              ->attributes.insert({CKA_SENSITIVE, MemoryObject::Flag(true)});
        }
        return result;
      });
}

void PointsOfLength(MemoryModule& module, CK_ULONG length) {
  Chain<&MemoryEntries::C_DeriveKey>(
      module, [=](auto next, CK_SESSION_HANDLE session, CK_MECHANISM* mechanism, auto... others) {
        const auto& given = *static_cast<const CK_ECDH1_DERIVE_PARAMS*>(mechanism->pParameter);
        return given.ulPublicDataLen == length ? next(session, mechanism, others...)
                                               : CKR_MECHANISM_PARAM_INVALID;
      });
}

void RoomForDerivedKeys(MemoryModule& module, std::size_t most) {
  Chain<&MemoryEntries::C_DeriveKey>(module, [&module, most](auto next, auto... arguments) {
    std::size_t count = 0;
    for (const MemoryCard& card : module.cards) {
      for (const auto& [handle, object] : card.objects) count += object.session != 0 ? 1 : 0;
    }
    return count < most ? next(arguments...) : CKR_DEVICE_MEMORY;
  });
}

}  // namespace kelvrin::faults
