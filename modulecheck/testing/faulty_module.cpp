// Readies the memory module, as a library, for one test of the program: a card with an RSA and an
// EC key over a module that does all that the extension expects but for one thing.
//
// The environment variable KELVRIN_FAULT names that. Some of the functions that are called go to
// the file KELVRIN_CALLS, one a line: C_Login with the token's label behind it, and "context" or,
// where a crash would leave a core file, "core" before; C_Finalize with the number of open
// sessions.
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>
#include <tuple>

#include "tests/module/fault_chain.h"
#include "tests/module/faults.h"

namespace kelvrin {
namespace {

using Bytes = MemoryObject::Bytes;
using Over = MemoryEntries;
using faults::Chain;

constexpr CK_ULONG kHuge = CK_ULONG{1} << 40;
constexpr CK_ULONG kModulus = 256;

// The module with its first card.
struct Ground {
  MemoryModule& module;
  MemoryCard& card;
  std::array<MemoryKey, 2> keys;  // RSA and EC
};

std::string Environment(const char* name) {
  const char* const value = std::getenv(name);
  return value == nullptr ? "" : value;
}

void Note(const std::string& call) {
  std::FILE* const file = std::fopen(Environment("KELVRIN_CALLS").c_str(), "a");
  if (file == nullptr) std::abort();
  std::fprintf(file, "%s\n", call.c_str());
  std::fclose(file);
}

[[noreturn]] void MakeNoise() {
  static const std::string text(1 << 20, 'n');
  while (true) std::fputs(text.c_str(), stderr);
}

[[noreturn]] void Hang() {
  for (;;) pause();
}

// A limit of 1 keeps Linux from handing the memory to a program, too.
bool LeavesCoreFiles() {
  rlimit limit = {};
  return getrlimit(RLIMIT_CORE, &limit) != 0 || limit.rlim_max > 1;
}

// A call of the function does this first.
template <auto over, typename Act>
void At(MemoryModule& module, Act act) {
  Chain<over>(module, [act](auto next, auto... arguments) {
    act();
    return next(arguments...);
  });
}

void NoteCalls(MemoryModule& module) {
  Chain<&Over::C_Login>(module, [&](auto next, CK_SESSION_HANDLE session, CK_USER_TYPE user,
                                    auto... others) {
    const MemoryCard* const card = module.FindCard(module.FindSession(session)->slot);
    Note((LeavesCoreFiles() ? "core " : "") +
         std::string(user == CKU_CONTEXT_SPECIFIC ? "context " : "") + "C_Login " + card->label);
    return next(session, user, others...);
  });
  At<&Over::C_Finalize>(module,
                        [&] { Note("C_Finalize " + std::to_string(module.sessions.size())); });
  At<&Over::C_Sign>(module, [] { Note("C_Sign"); });
  At<&Over::C_DeriveKey>(module, [] { Note("C_DeriveKey"); });
}

// The function answers this, whatever it did.
template <auto over>
void Answers(MemoryModule& module, CK_RV result) {
  Chain<over>(module, [=](auto next, auto... arguments) {
    next(arguments...);
    return result;
  });
}

// An operation that begins ends the one that was under way in its session.
void OperationReplacesOperation(MemoryModule& module) {
  const auto end = [&](auto next, CK_SESSION_HANDLE session, auto... others) {
    if (MemorySession* const open = module.FindSession(session)) open->operation.reset();
    return next(session, others...);
  };
  Chain<&Over::C_SignInit>(module, end);
  Chain<&Over::C_DecryptInit>(module, end);
}

// The mechanism begins as this other one.
template <auto over>
void Begins(MemoryModule& module, CK_MECHANISM_TYPE mechanism, CK_MECHANISM_TYPE other) {
  Chain<over>(module, [=](auto next, auto session, CK_MECHANISM* given, auto key) {
    CK_MECHANISM used = *given;
    if (used.mechanism == mechanism) used.mechanism = other;
    return next(session, &used, key);
  });
}

// Both keys' objects of this kind get the attribute's value, or go.
using Kind = CK_OBJECT_HANDLE MemoryKey::*;
void SetAll(Ground& g, Kind kind, CK_ATTRIBUTE_TYPE type, const Bytes& value) {
  for (const MemoryKey& key : g.keys) g.card.Attribute(key.*kind, type) = value;
}
void EraseAll(Ground& g, Kind kind) {
  for (const MemoryKey& key : g.keys) g.card.objects.erase(key.*kind);
}

void HugeLengths(Ground& g) {
  faults::Spoils(g.module, [](auto*, CK_ATTRIBUTE& attribute, auto, auto) -> CK_RV {
    attribute.ulValueLen = kHuge;
    return CKR_OK;
  });
  const auto spoil_count = [](auto next, auto first, auto second, auto... others) {
    CK_ULONG* const count = std::get<sizeof...(others) - 1>(std::tuple(others...));
    const CK_RV result = next(first, second, others...);
    if (result == CKR_OK && *count != 0) *count = kHuge;
    return result;
  };
  Chain<&Over::C_FindObjects>(g.module, spoil_count);
  Chain<&Over::C_GetMechanismList>(g.module, spoil_count);
}

const std::map<std::string, void (*)(Ground&)> kFaults = {
    // Of the card.
    {"card-number", [](Ground& g) { g.card.label = " 4711"; }},
    {"shared-label", [](Ground& g) { g.card.label = "piv"; }},
    {"pin-locked", [](Ground& g) { g.card.tries = 0; }},
    {"pin-final-try", [](Ground& g) { g.card.tries = 1; }},
    {"pin-count-low", [](Ground& g) { g.card.tries = 2; }},
    {"token", [](Ground& g) { g.card.flags &= ~CKF_TOKEN_INITIALIZED; }},
    {"no-slot", [](Ground& g) { g.module.readers.clear(); }},
    {"empty-reader", [](Ground& g) { g.module.Pull(g.card); }},
    {"slot-description", [](Ground& g) { g.module.readers[0] = {g.card.slot, "", '\0'}; }},
    {"odd-description", [](Ground& g) { g.module.readers[0].description = "A<B & \x1b[31m\xff"; }},
    {"two-cards",
     [](Ground& g) {
       g.module.readers[0].description = "First reader";
       g.module.AddCard({.reader = "Second reader", .label = "1234 5678", .pin = "654321"})
           .AddEcKey({0x01});
     }},
    {"second-reader-empty", [](Ground& g) { g.module.AddReader("Empty reader"); }},
    {"handle-zero", [](Ground& g) { g.card.Rehandle(g.keys[0].certificate, 0); }},
    {"certificates", [](Ground& g) { EraseAll(g, &MemoryKey::certificate); }},
    {"no-certificate",
     [](Ground& g) { SetAll(g, &MemoryKey::certificate, CKA_VALUE, Bytes(400, '1')); }},
    {"certificate-labels",
     [](Ground& g) { g.card.Attribute(g.keys[0].certificate, CKA_LABEL)[0] = 0xfc; }},
    {"certificate-sizes",
     [](Ground& g) { g.card.Attribute(g.keys[0].certificate, CKA_VALUE) = Bytes(5000, '0'); }},
    {"certificate-ids",
     [](Ground& g) { g.card.Attribute(g.keys[0].certificate, CKA_ID) = Bytes(256, '0'); }},
    {"ec-usage", [](Ground& g) { g.card.Attribute(g.keys[1].public_key, CKA_WRAP) = {CK_TRUE}; }},
    {"usage-flags",
     [](Ground& g) {
       for (const MemoryKey& key : g.keys) {
         g.card.objects.at(key.public_key).attributes.erase(CKA_VERIFY);
       }
     }},
    {"odd-key",
     [](Ground& g) { g.card.objects.at(g.keys[0].public_key).attributes.erase(CKA_VERIFY); }},
    {"allowed-mechanisms",
     [](Ground& g) { SetAll(g, &MemoryKey::public_key, CKA_ALLOWED_MECHANISMS, {}); }},
    {"useless-mechanism",
     [](Ground& g) {
       g.card.Attribute(g.keys[0].public_key, CKA_ALLOWED_MECHANISMS) =
           MemoryObject::Number(CKM_SHA256_RSA_PKCS);
     }},
    {"raw-rsa-offered",
     [](Ground& g) {
       std::erase(g.card.mechanisms, CKM_RSA_X_509);
       SetAll(g, &MemoryKey::public_key, CKA_ALLOWED_MECHANISMS, {});
     }},
    {"private-keys", [](Ground& g) { EraseAll(g, &MemoryKey::private_key); }},
    {"context-login",
     [](Ground& g) {
       SetAll(g, &MemoryKey::private_key, CKA_ALWAYS_AUTHENTICATE, MemoryObject::Flag(true));
     }},
    // Of the module.
    {"no-list", [](Ground& g) { Answers<&Over::C_GetFunctionList>(g.module, CKR_HOST_MEMORY); }},
    {"initialise", [](Ground& g) { faults::WantsLocks(g.module); }},
    {"no-start", [](Ground& g) { Answers<&Over::C_Initialize>(g.module, CKR_GENERAL_ERROR); }},
    {"initialise-again",
     [](Ground& g) {
       Chain<&Over::C_Initialize>(g.module, [](auto next, void* arguments) -> CK_RV {
         return next(arguments) == CKR_OK ? CKR_OK : CKR_GENERAL_ERROR;
       });
     }},
    {"finalise", [](Ground& g) { Answers<&Over::C_Finalize>(g.module, CKR_GENERAL_ERROR); }},
    {"read-only", [](Ground& g) { faults::RefusesWriting(g.module); }},
    {"invalid-handle",
     [](Ground& g) {
       Chain<&Over::C_GetAttributeValue>(
           g.module, [](auto next, auto session, auto object, auto... others) -> CK_RV {
             return object == 0 ? CKR_OK : next(session, object, others...);
           });
     }},
    {"huge-lengths", HugeLengths},
    {"public-keys", [](Ground& g) { faults::HidesPublicKeys(g.module); }},
    {"verify-minus-one", [](Ground& g) { faults::ReadsLengthMinusOne(g.module, CKA_VERIFY); }},
    {"login-state",
     [](Ground& g) {
       Chain<&Over::C_GetSessionInfo>(g.module, [](auto next, auto session, auto* info) {
         const CK_RV result = next(session, info);
         info->state = CKS_RW_PUBLIC_SESSION;
         return result;
       });
     }},
    {"sign-during-search", [](Ground& g) { faults::OperationsWaitForSearch(g.module); }},
    {"raw-rsa-short", [](Ground& g) { faults::RefusesShortBlocks(g.module); }},
    {"raw-rsa-too-long",
     [](Ground& g) {
       Chain<&Over::C_Sign>(g.module,
                            [](auto next, auto session, auto* data, CK_ULONG size, auto... others) {
                              return next(session, data, std::min(size, kModulus), others...);
                            });
     }},
    {"ecdsa-long-digests",
     [](Ground& g) {
       Chain<&Over::C_Sign>(
           g.module,
           [&](auto next, auto session, auto* data, CK_ULONG size, auto... others) -> CK_RV {
             const bool is_ecdsa = g.module.FindSession(session)->operation->mechanism == CKM_ECDSA;
             return is_ecdsa && size > 32 ? CKR_DEVICE_ERROR : next(session, data, size, others...);
           });
     }},
    {"wrong-signatures",
     [](Ground& g) {
       Chain<&Over::C_Sign>(g.module, [](auto next, auto session, auto* data, CK_ULONG size,
                                         CK_BYTE* output, CK_ULONG* output_size) {
         const CK_RV result = next(session, data, size, output, output_size);
         if (result == CKR_OK && output != nullptr) output[*output_size - 1] ^= 1;
         return result;
       });
     }},
    {"decrypt-pkcs1",
     [](Ground& g) { Begins<&Over::C_DecryptInit>(g.module, CKM_RSA_PKCS, CKM_RSA_PKCS_PSS); }},
    {"decrypt-raw",
     [](Ground& g) {
       Chain<&Over::C_Decrypt>(g.module, [](auto next, auto session, auto* data, CK_ULONG size,
                                            CK_BYTE* output, CK_ULONG* output_size) {
         const CK_RV result = next(session, data, size, output, output_size);
         if (result == CKR_OK && *output_size == kModulus) output[0] = 1;
         return result;
       });
     }},
    {"derivation", [](Ground& g) { Answers<&Over::C_DeriveKey>(g.module, CKR_DEVICE_ERROR); }},
    {"card-pulled",
     [](Ground& g) { At<&Over::C_SignInit>(g.module, [&] { g.module.Pull(g.card); }); }},
    {"crash-in-listing", [](Ground& g) { At<&Over::C_GetMechanismList>(g.module, std::abort); }},
    {"crash-in-login", [](Ground& g) { At<&Over::C_Login>(g.module, std::abort); }},
    {"crash-in-sign", [](Ground& g) { At<&Over::C_Sign>(g.module, std::abort); }},
    {"hang-in-login", [](Ground& g) { At<&Over::C_Login>(g.module, Hang); }},
    {"endless-noise", [](Ground& g) { At<&Over::C_Sign>(g.module, MakeNoise); }},
    {"hang-in-sign", [](Ground& g) { At<&Over::C_Sign>(g.module, Hang); }},
    {"exit-at-start", [](Ground& g) { At<&Over::C_Initialize>(g.module, [] { std::exit(3); }); }},
    // The worker before this one noted that it had finished.
    {"hang-behind-adapter",
     [](Ground& g) {
       At<&Over::C_Initialize>(g.module, [] {
         if (!std::filesystem::exists(Environment("KELVRIN_CALLS"))) return;
         Note("hanging");
         Hang();
       });
     }},
    // What is written where the report, or the worker's document, belongs.
    {"noise",
     [](Ground& g) {
       At<&Over::C_Initialize>(g.module, [] {
         std::puts("noise on standard output");
         std::fflush(stdout);
         dprintf(3, "noise\n[1]\n{\"step\": 7}\n");
       });
     }},
    {"garbage",
     [](Ground& g) {
       At<&Over::C_Finalize>(g.module, [] {
         dprintf(3, "{\"step\": [], \"results\": 8, \"listing\": []}\n");
         std::_Exit(0);
       });
     }},
};

}  // namespace
}  // namespace kelvrin

void SetUpMemoryModule(kelvrin::MemoryModule& module) {
  using namespace kelvrin;
  const std::string fault = Environment("KELVRIN_FAULT");
  MemoryCard& card = module.AddCard();
  card.mechanisms.push_back(CKM_ECDSA_SHA1);
  static Ground ground = {module, card, {}};
  ground.keys[0] = card.AddRsaKey({0x01}, {.label = "RSA key"});
  ground.keys[1] = card.AddEcKey({0x02}, {.label = "EC key"});
  if (fault != "second-search") faults::SearchReplacesSearch(module);
  if (fault != "failed-lengths") faults::LeavesLengths(module);
  if (fault != "sign-after-failure") OperationReplacesOperation(module);
  if (fault != "ecdsa-der") faults::DerSignatures(module);
  // A finished digest is signed as it is.
  if (fault != "ecdsa-sha1") Begins<&Over::C_SignInit>(module, CKM_ECDSA_SHA1, CKM_ECDSA);
  const auto found = kFaults.find(fault);
  if (found != kFaults.end()) found->second(ground);
  NoteCalls(module);
}
