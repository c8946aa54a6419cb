// The set-up of a token: as the extension makes it, most of which is the classes that stand in for
// the system's and decode certificates; and its PKCS#11 calls alone.
#include <array>
#include <chrono>

#include "bench/benchmarks.h"
#include "bench/cards.h"
#include "p11/bringup.h"
#include "p11/loader.h"
#include "p11/lookup.h"
#import "platform/linux/ctk/MainBundle.h"
#import "tests/endtoend/real_card.h"
#import "token/Token.h"

namespace kelvrin::bench {
namespace {

using Clock = std::chrono::steady_clock;

// Makes the token of the main bundle's card and gives it up again. Returns the seconds that the
// making took; a negative number when the token does not publish as many keychain items.
double SecondsOfSetup(NSUInteger items) {
  const auto start = Clock::now();
  std::chrono::duration<double> taken{-1};
  @autoreleasepool {
    Token *token = endtoend::MakeToken();
    const auto end = Clock::now();
    if ([[[token keychainContents] items] count] == items) taken = end - start;
  }
  return taken.count();
}

bool ReadCertificate(CK_FUNCTION_LIST *p11, CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object) {
  static CertInfo info;
  std::array<char, kLabelSize> label = {};
  CK_OBJECT_HANDLE key = CK_INVALID_HANDLE;
  if (get_cert_info(p11, session, object, &info) != CKR_OK ||
      get_pub_key(p11, session, info.id, info.id_len, &key) != CKR_OK ||
      get_label(p11, session, key, label.data()) != CKR_OK) {
    return false;
  }
  for (const CK_ATTRIBUTE_TYPE flag : {CKA_VERIFY, CKA_ENCRYPT, CKA_WRAP, CKA_DERIVE}) {
    CK_BBOOL value = CK_FALSE;
    if (is_attr_supported(p11, session, key, flag, &value) != CKR_OK) return false;
  }
  return true;
}

bool ReadCard(CK_FUNCTION_LIST *p11, CK_SESSION_HANDLE session, CK_ULONG certificates) {
  CK_OBJECT_CLASS object_class = CKO_CERTIFICATE;
  CK_ATTRIBUTE attribute = {CKA_CLASS, &object_class, sizeof(object_class)};
  std::array<CK_OBJECT_HANDLE, 20> objects = {};
  CK_ULONG count = 0;
  if (p11->C_FindObjectsInit(session, &attribute, 1) != CKR_OK ||
      p11->C_FindObjects(session, objects.data(), objects.size(), &count) != CKR_OK ||
      count != certificates) {
    return false;
  }
  for (CK_ULONG i = 0; i < count; ++i) {
    if (!ReadCertificate(p11, session, objects.at(i))) return false;
  }
  return true;
}

// Brings the module up, reads certificates and keys as the extension does, and finalises it.
double SecondsOfCalls(const std::filesystem::path &library, CK_ULONG certificates) {
  void *module = nullptr;
  CK_FUNCTION_LIST *p11 = nullptr;
  CK_SLOT_ID slot = 0;
  CK_SESSION_HANDLE session = CK_INVALID_HANDLE;
  const auto start = Clock::now();
  const bool is_read = init(library.c_str(), &module, &p11, &slot, &session, nullptr) == CKR_OK &&
                       ReadCard(p11, session, certificates);
  const std::chrono::duration<double> taken = Clock::now() - start;
  if (p11 != nullptr) p11->C_Finalize(nullptr);
  if (module != nullptr) C_UnloadModule(module);
  return is_read ? taken.count() : -1;
}

struct Setups {
  const std::vector<int> certificates = {2, 5, 10, 20};
  const Cards cards{certificates};
  // Keeps the module initialised, so that a set-up is the extension's and the adapter's.
  const RawModule raw;
};

}  // namespace

Fixture RegisterSetups() {
  auto fixture = std::make_shared<Setups>();
  for (const int certificates : fixture->certificates) {
    const std::filesystem::path bundle = fixture->cards.Bundle(certificates);
    const std::string number = std::to_string(certificates);
    // A certificate and its key each make a keychain item.
    RegisterTimed(
        "setups/token/" + number,
        [=] { return SecondsOfSetup(2 * static_cast<NSUInteger>(certificates)); },
        [=] {
          @autoreleasepool {
            TKSetMainBundle(host::ToString(bundle));
          }
        });
    RegisterTimed("setups/calls/" + number, [=] {
      return SecondsOfCalls(Cards::ModuleOf(bundle), static_cast<CK_ULONG>(certificates));
    });
  }
  return fixture;
}

}  // namespace kelvrin::bench
