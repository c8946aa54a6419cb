// What many key agreements leave behind.
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <fstream>
#include <functional>
#include <optional>
#include <stdexcept>

#import "bench/extension.h"
#include "bench/sections.h"
#include "p11/lookup.h"
#include "p11/operations.h"
#include "tests/endtoend/verification.h"
#import "token/Token.h"

namespace kelvrin::bench {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kAgreements = 10'000;
constexpr int kWarmUp = 500;  // agreements until every cache and pool has its size
constexpr int kSearchBatches = 301;
constexpr int kSearchesOfBatch = 5;
constexpr CK_BYTE kEcKeyId = 2;
constexpr std::size_t kSecretSize = 32;
// SoftHSM keeps some 200 bytes of every object that was destroyed until it is finalised, so what
// the same agreements take without the adapter is taken off. A derived secret that stays is over
// 100 bytes: ten thousand would be a megabyte, and would make a search ten times as long and more.
constexpr Target kMemoryTarget = {Target::Bound::kAtMost, 64.0 * 1024};
constexpr Target kSearchTarget = {Target::Bound::kAtMost, 1.5};
constexpr Target kObjectsTarget = {Target::Bound::kAtMost, 0};

// Bytes that the process has of physical memory, and bytes that it has allocated.
double ResidentBytes() {
  std::ifstream statm("/proc/self/statm");
  long pages = 0;
  long resident = 0;
  if (!(statm >> pages >> resident)) throw std::runtime_error("/proc/self/statm cannot be read");
  return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE));
}
double AllocatedBytes() {
  const struct mallinfo2 info = mallinfo2();
  return static_cast<double>(info.uordblks + info.hblkhd);
}

// The state that is to stay.
struct State {
  double resident;
  double allocated;
  double objects;
  Samples search;
};

using Agreement = std::function<endtoend::Bytes()>;

// As the extension does it, finding the key anew.
endtoend::Bytes AgreeThroughAdapter(CK_FUNCTION_LIST *p11, CK_SESSION_HANDLE session,
                                    const endtoend::Bytes &point) {
  CK_OBJECT_HANDLE key = CK_INVALID_HANDLE;
  if (get_priv_key(p11, session, &kEcKeyId, 1, &key) != CKR_OK) return {};
  endtoend::Bytes secret(kResultSize);
  CK_ULONG size = 0;
  const CK_RV rv = derive_key(p11, session, key, CKM_ECDH1_DERIVE, point.data(), point.size(),
                              secret.data(), &size);
  secret.resize(rv == CKR_OK ? size : 0);
  return secret;
}

// As the standard has it: the secret is an object, which is read and destroyed.
endtoend::Bytes AgreeOnModule(CK_FUNCTION_LIST *functions, CK_SESSION_HANDLE session,
                              CK_OBJECT_HANDLE key, endtoend::Bytes point) {
  CK_ECDH1_DERIVE_PARAMS parameters = {CKD_NULL, 0, nullptr, point.size(), point.data()};
  CK_MECHANISM mechanism = {CKM_ECDH1_DERIVE, &parameters, sizeof(parameters)};
  CK_OBJECT_CLASS object_class = CKO_SECRET_KEY;
  CK_KEY_TYPE key_type = CKK_GENERIC_SECRET;
  CK_BBOOL yes = CK_TRUE;
  CK_BBOOL no = CK_FALSE;
  endtoend::Bytes secret(kSecretSize);
  CK_ULONG size = secret.size();
  std::array<CK_ATTRIBUTE, 6> attributes = {{{CKA_CLASS, &object_class, sizeof(object_class)},
                                             {CKA_KEY_TYPE, &key_type, sizeof(key_type)},
                                             {CKA_TOKEN, &no, sizeof(no)},
                                             {CKA_SENSITIVE, &no, sizeof(no)},
                                             {CKA_EXTRACTABLE, &yes, sizeof(yes)},
                                             {CKA_VALUE_LEN, &size, sizeof(size)}}};
  CK_OBJECT_HANDLE derived = CK_INVALID_HANDLE;
  CK_RV rv = functions->C_DeriveKey(session, &mechanism, key, attributes.data(), attributes.size(),
                                    &derived);
  if (rv != CKR_OK) return {};
  CK_ATTRIBUTE value = {CKA_VALUE, secret.data(), secret.size()};
  rv = functions->C_GetAttributeValue(session, derived, &value, 1);
  if (rv == CKR_OK) rv = functions->C_DestroyObject(session, derived);
  return rv == CKR_OK ? secret : endtoend::Bytes();
}

// Throws when a secret is not the one that is expected. Returns the seconds of one.
double Repeat(int number, const Agreement &agree, const endtoend::Bytes &expected) {
  const auto start = Clock::now();
  for (int i = 0; i < number; ++i) {
    if (agree() != expected) throw std::runtime_error("a key agreement gave a wrong secret");
  }
  return std::chrono::duration<double>(Clock::now() - start).count() / number;
}

Samples TimeSearches(CK_FUNCTION_LIST *functions, CK_SESSION_HANDLE session) {
  Samples seconds;
  for (int batch = 0; batch < kSearchBatches; ++batch) {
    const auto start = Clock::now();
    for (int i = 0; i < kSearchesOfBatch; ++i) FindPrivateKey(functions, session, kEcKeyId);
    seconds.push_back(std::chrono::duration<double>(Clock::now() - start).count() /
                      kSearchesOfBatch);
  }
  return seconds;
}

State Look(CK_FUNCTION_LIST *functions, CK_SESSION_HANDLE session) {
  State state;
  state.search = TimeSearches(functions, session);
  state.objects = static_cast<double>(FindObjects(functions, session, {}).size());
  state.allocated = AllocatedBytes();
  state.resident = ResidentBytes();
  return state;
}

Row ValueRow(const std::string &name, Quantity quantity, double value,
             std::optional<Target> target) {
  Row row;
  row.name = name;
  row.quantity = quantity;
  row.value = value;
  row.target = target;
  return row;
}

}  // namespace

Section MeasureAgreements(const Cards &cards, const RawModule &raw) {
  Extension extension(cards.Bundle(kFewCertificates));
  extension.LogIn(cards.pin());
  CK_FUNCTION_LIST *functions = raw.functions();
  const CK_SESSION_HANDLE session = raw.OpenSession(Cards::Label(kFewCertificates));
  const CK_OBJECT_HANDLE key = FindPrivateKey(functions, session, kEcKeyId);
  const endtoend::KeyAgreement peer;
  const endtoend::Bytes point = peer.PublicPoint();
  const endtoend::Bytes expected = peer.Secret(cards.PublicKey(kFewCertificates, "ec"));
  Token *token = extension.token();
  const Agreement road = [&] { return AgreeThroughAdapter([token p11], [token session], point); };
  const Agreement module = [&] { return AgreeOnModule(functions, session, key, point); };

  Repeat(kWarmUp, road, expected);
  const State before = Look(functions, session);
  const double seconds = Repeat(kAgreements, road, expected);
  const State after = Look(functions, session);
  const double raw_seconds = Repeat(kAgreements, module, expected);
  const State after_module = Look(functions, session);
  functions->C_CloseSession(session);

  const double growth = after.allocated - before.allocated;
  const double own_growth = after_module.allocated - after.allocated;
  return {
      "10000 key agreements through the adapter",
      {ValueRow("one agreement by the module alone", Quantity::kSeconds, raw_seconds, {}),
       ValueRow("one agreement through the adapter", Quantity::kSeconds, seconds, {}),
       ValueRow("allocated memory, growth", Quantity::kBytes, growth, {}),
       ValueRow("the same by the module alone", Quantity::kBytes, own_growth, {}),
       ValueRow("what the adapter adds to that", Quantity::kBytes,
                std::max(growth - own_growth, 0.0), kMemoryTarget),
       ValueRow("resident memory, growth", Quantity::kBytes, after.resident - before.resident, {}),
       ValueRow("objects on the token, growth", Quantity::kCount, after.objects - before.objects,
                kObjectsTarget),
       TimeRow("the module's search before", before.search),
       TimeRow("the module's search after", after.search),
       ValueRow("the fastest search after against before", Quantity::kFactor,
                Quantile(after.search, 0) / Quantile(before.search, 0), kSearchTarget)}};
}

}  // namespace kelvrin::bench
