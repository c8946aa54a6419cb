// What key agreements take, and what many of them leave behind.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <functional>
#include <limits>
#include <stdexcept>

#include "bench/benchmarks.h"
#include "bench/cards.h"
#import "bench/extension.h"
#include "p11/lookup.h"
#include "p11/operations.h"
#import "token/Token.h"

namespace kelvrin::bench {
namespace {

using host::Bytes;
using host::testing::OpensslKey;
using Clock = std::chrono::steady_clock;

constexpr int kCertificates = 2;
constexpr int kAgreements = 10'000;
constexpr int kWarmUp = 500;  // agreements until every cache and pool has its size
constexpr int kSearches = 1500;
constexpr CK_BYTE kEcKeyId = 2;
constexpr std::size_t kSecretSize = 32;

double AllocatedBytes() {
  const struct mallinfo2 info = mallinfo2();
  return static_cast<double>(info.uordblks + info.hblkhd);
}

using Agreement = std::function<Bytes()>;

// As the extension does it, finding the key anew.
Bytes AgreeThroughAdapter(CK_FUNCTION_LIST *p11, CK_SESSION_HANDLE session, const Bytes &point) {
  CK_OBJECT_HANDLE key = CK_INVALID_HANDLE;
  if (get_priv_key(p11, session, &kEcKeyId, 1, &key) != CKR_OK) return {};
  Bytes secret(kResultSize);
  CK_ULONG size = 0;
  const CK_RV rv = derive_key(p11, session, key, CKM_ECDH1_DERIVE, point.data(), point.size(),
                              secret.data(), &size);
  secret.resize(rv == CKR_OK ? size : 0);
  return secret;
}

// As the standard has it: the secret is an object, which is read and destroyed.
Bytes AgreeOnModule(CK_FUNCTION_LIST *functions, CK_SESSION_HANDLE session, CK_OBJECT_HANDLE key,
                    Bytes point) {
  CK_ECDH1_DERIVE_PARAMS parameters = {CKD_NULL, 0, nullptr, point.size(), point.data()};
  CK_MECHANISM mechanism = {CKM_ECDH1_DERIVE, &parameters, sizeof(parameters)};
  CK_OBJECT_CLASS object_class = CKO_SECRET_KEY;
  CK_KEY_TYPE key_type = CKK_GENERIC_SECRET;
  CK_BBOOL yes = CK_TRUE;
  CK_BBOOL no = CK_FALSE;
  Bytes secret(kSecretSize);
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
  return rv == CKR_OK ? secret : Bytes();
}

// The module's fastest search.
double SecondsOfSearch(CK_FUNCTION_LIST *functions, CK_SESSION_HANDLE session) {
  double least = std::numeric_limits<double>::infinity();
  for (int i = 0; i < kSearches; ++i) {
    const auto start = Clock::now();
    FindPrivateKey(functions, session, kEcKeyId);
    least = std::min(least, std::chrono::duration<double>(Clock::now() - start).count());
  }
  return least;
}

struct Agreements {
  Agreements() {
    LogIn(extension, cards.pin());
    key = FindPrivateKey(functions, session, kEcKeyId);
  }

  // Growth of the allocated memory over many agreements.
  double BytesOf(const Agreement &agree) const {
    const double before = AllocatedBytes();
    for (int i = 0; i < kAgreements; ++i) {
      if (agree() != expected) throw std::runtime_error("a key agreement gave a wrong secret");
    }
    return AllocatedBytes() - before;
  }
  double Objects() const { return static_cast<double>(FindObjects(functions, session, {}).size()); }
  void Measure(benchmark::State &state) const;

  const Cards cards{{kCertificates}};
  const RawModule raw;
  const endtoend::Inserted extension{cards.Bundle(kCertificates)};
  CK_FUNCTION_LIST *const functions = raw.functions();
  const CK_SESSION_HANDLE session = raw.OpenSession(Cards::Label(kCertificates));
  CK_OBJECT_HANDLE key = CK_INVALID_HANDLE;
  const OpensslKey peer = OpensslKey::EllipticCurve();
  const Bytes point = peer.facts().public_key;
  const Bytes expected = peer.Agree(cards.PublicKey(kCertificates, "ec").facts().public_key);
  const Agreement road = [this] {
    Token *token = extension.token();
    return AgreeThroughAdapter([token p11], [token session], point);
  };
  const Agreement module = [this] { return AgreeOnModule(functions, session, key, point); };
};

// SoftHSM keeps some 200 bytes of every object that was destroyed until it is finalised, so what
// the same agreements take without the adapter is taken off. A derived secret that stays is over
// 100 bytes: ten thousand would be a megabyte, and would make a search ten times as long and more.
void Agreements::Measure(benchmark::State &state) const {
  while (state.KeepRunning()) {
    for (int i = 0; i < kWarmUp; ++i) road();
    const double objects = Objects();
    const double search = SecondsOfSearch(functions, session);
    const double growth = BytesOf(road);
    state.counters["objects"] = Objects() - objects;
    state.counters["search_factor"] = SecondsOfSearch(functions, session) / search;
    const double own_growth = BytesOf(module);
    state.counters["bytes"] = growth;
    state.counters["module_bytes"] = own_growth;
    state.counters["adapter_bytes"] = std::max(growth - own_growth, 0.0);
  }
}

}  // namespace

Fixture RegisterAgreements() {
  auto fixture = std::make_shared<Agreements>();
  Register("agreements/module", [=] { return fixture->module() == fixture->expected; });
  Register("agreements/extension", [=] { return fixture->road() == fixture->expected; });
  benchmark::RegisterBenchmark("agreements/left_behind",
                               [=](benchmark::State &state) { fixture->Measure(state); })
      ->Iterations(1)
      ->Repetitions(1);
  return fixture;
}

}  // namespace kelvrin::bench
