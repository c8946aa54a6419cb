// Faults of a module's life, its searches and its attributes.
#include "tests/module/faults.h"

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <span>

#include "tests/module/fault_chain.h"

namespace kelvrin::faults {
namespace {

bool AsksForLocks(const void* arguments) {
  const auto* const given = static_cast<const CK_C_INITIALIZE_ARGS*>(arguments);
  return given != nullptr && (given->flags & CKF_OS_LOCKING_OK) != 0;
}

// A call that is made once; true for it.
auto Once() {
  return [done = std::make_shared<bool>(false)] { return !std::exchange(*done, true); };
}

}  // namespace

void WantsLocks(MemoryModule& module, CK_RV refusal) {
  Chain<&MemoryEntries::C_Initialize>(module, [=](auto next, void* arguments) {
    return AsksForLocks(arguments) ? next(arguments) : refusal;
  });
}

void RefusesLocks(MemoryModule& module, CK_RV refusal) {
  Chain<&MemoryEntries::C_Initialize>(module, [=](auto next, void* arguments) {
    return AsksForLocks(arguments) ? refusal : next(arguments);
  });
}

void WantsReserved(MemoryModule& module, const std::string& text) {
  Chain<&MemoryEntries::C_Initialize>(module, [=](auto next, void* arguments) {
    const auto* const given = static_cast<const CK_C_INITIALIZE_ARGS*>(arguments);
    const void* const reserved = given != nullptr ? given->pReserved : nullptr;
    const bool fits = reserved != nullptr && static_cast<const char*>(reserved) == text;
    return fits ? next(arguments) : CKR_ARGUMENTS_BAD;
  });
}

void HangsWithLocks(MemoryModule& module) {
  module.before = [&module, before = module.before](std::string_view function) {
    const bool has_locks =
        module.initialize_arguments && AsksForLocks(&*module.initialize_arguments);
    const bool is_pulled = std::any_of(module.cards.begin(), module.cards.end(),
                                       [](const MemoryCard& card) { return !card.is_present; });
    if (module.is_initialized && has_locks && is_pulled) {
      std::fprintf(stderr, "%s waits for ever: the module has the system's locks and no card\n",
                   std::string(function).c_str());
      std::abort();
    }
    return before ? before(function) : CKR_OK;
  };
}

void FinalizeFailsOnce(MemoryModule& module) {
  Chain<&MemoryEntries::C_Finalize>(module, [first = Once()](auto next, void* reserved) {
    return first() ? CKR_GENERAL_ERROR : next(reserved);
  });
}

void RefusesWriting(MemoryModule& module) {
  Chain<&MemoryEntries::C_OpenSession>(module, [](auto next, CK_SLOT_ID slot, CK_FLAGS flags,
                                                  auto... others) {
    return (flags & CKF_RW_SESSION) != 0 ? CKR_TOKEN_WRITE_PROTECTED : next(slot, flags, others...);
  });
}

void EmptyMechanismListOnce(MemoryModule& module) {
  Chain<&MemoryEntries::C_GetMechanismList>(
      module, [first = Once()](auto next, CK_SLOT_ID slot, auto* list, CK_ULONG* count) {
        if (!first()) return next(slot, list, count);
        *count = 0;
        return CK_RV{CKR_OK};
      });
}

void OperationsWaitForSearch(MemoryModule& module) {
  const auto wait = [&module](auto next, CK_SESSION_HANDLE handle, auto... others) {
    const MemorySession* const session = module.FindSession(handle);
    const bool searches = session != nullptr && session->search.has_value();
    return searches ? CKR_OPERATION_ACTIVE : next(handle, others...);
  };
  Chain<&MemoryEntries::C_SignInit>(module, wait);
  Chain<&MemoryEntries::C_DecryptInit>(module, wait);
}

void SearchReplacesSearch(MemoryModule& module) {
  Chain<&MemoryEntries::C_FindObjectsInit>(
      module, [&module](auto next, CK_SESSION_HANDLE handle, auto... others) {
        if (MemorySession* const session = module.FindSession(handle)) session->search.reset();
        return next(handle, others...);
      });
}

void HidesPublicKeys(MemoryModule& module) {
  Chain<&MemoryEntries::C_FindObjectsInit>(
      module, [&module](auto next, CK_SESSION_HANDLE handle, auto... others) {
        const CK_RV result = next(handle, others...);
        if (result != CKR_OK) return result;
        std::erase_if(*module.FindSession(handle)->search, [&](CK_OBJECT_HANDLE object) {
          const MemoryObject* const found = module.FindObject(handle, object);
          return found->Has(CKA_CLASS, MemoryObject::Number(CKO_PUBLIC_KEY));
        });
        return result;
      });
}

void Spoils(MemoryModule& module, const Spoil& spoil) {
  Chain<&MemoryEntries::C_GetAttributeValue>(
      module, [&module, spoil](auto next, CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object,
                               CK_ATTRIBUTE* attributes, CK_ULONG count) {
        CK_RV result = CKR_OK;
        for (CK_ATTRIBUTE& attribute : std::span(attributes, count)) {
          const CK_ULONG room = attribute.ulValueLen;
          const CK_RV read = next(session, object, &attribute, 1);
          const CK_RV one = spoil(module.FindObject(session, object), attribute, room, read);
          if (one != CKR_OK) result = one;
        }
        return result;
      });
}

void NoAllowedMechanisms(MemoryModule& module) {
  Spoils(module, [](const MemoryObject*, CK_ATTRIBUTE& attribute, CK_ULONG, CK_RV result) {
    if (attribute.type != CKA_ALLOWED_MECHANISMS) return result;
    attribute.ulValueLen = CK_UNAVAILABLE_INFORMATION;
    return CK_RV{CKR_ATTRIBUTE_TYPE_INVALID};
  });
}

void ReadsLengthMinusOne(MemoryModule& module, CK_ATTRIBUTE_TYPE type) {
  Spoils(module, [=](const MemoryObject*, CK_ATTRIBUTE& attribute, CK_ULONG, CK_RV result) {
    if (attribute.type != type) return result;
    attribute.ulValueLen = CK_UNAVAILABLE_INFORMATION;
    return CK_RV{CKR_OK};
  });
}

void LeavesLengths(MemoryModule& module) {
  Spoils(module, [](const MemoryObject*, CK_ATTRIBUTE& attribute, CK_ULONG room, CK_RV result) {
    if (result != CKR_OK) attribute.ulValueLen = room;
    return result;
  });
}

void WantsExactRoom(MemoryModule& module) {
  Spoils(module, [](const MemoryObject*, CK_ATTRIBUTE& attribute, CK_ULONG room, CK_RV result) {
    const bool is_number = attribute.type == CKA_KEY_TYPE || attribute.type == CKA_CLASS;
    if (!is_number || attribute.pValue == nullptr || room == sizeof(CK_ULONG)) return result;
    attribute.ulValueLen = CK_UNAVAILABLE_INFORMATION;
    return CK_RV{CKR_BUFFER_TOO_SMALL};
  });
}

}  // namespace kelvrin::faults
