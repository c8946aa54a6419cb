// A card pulled at every call of a request: an error after few more calls, and the next insertion
// works.
#include <dlfcn.h>

#include <functional>
#include <ostream>

#include "adapter/testing/behaviour_fixture.h"
#include "softhsm_card.h"
#include "tests/module/test_keys.h"

namespace kelvrin::adapter {
namespace {

// The extension's whole road without a look at what comes out: the first error ends it.
CK_RV Request(Extension& extension, const std::string& pin) {
  using Bytes = Extension::Bytes;
  CK_RV result = extension.SetUp();
  if (result != CKR_OK) return result;
  bool answer = false;
  result = extension.Supports(1, CKA_VERIFY, CKM_RSA_X_509, &answer);
  if (result == CKR_OK) result = extension.Supports(2, CKA_VERIFY, CKM_ECDSA, &answer);
  if (result == CKR_OK) result = extension.LogIn(pin);
  Bytes output;
  if (result == CKR_OK) result = extension.Sign(2, CKM_ECDSA, Bytes(32, 1), &output);
  if (result == CKR_OK) result = extension.Sign(1, CKM_RSA_PKCS, Bytes(32, 1), &output);
  if (result != CKR_OK) return result;
  const Bytes sealed = EncryptPkcs1(extension.public_keys[1].get(), {1, 2, 3});
  result = extension.Decrypt(1, CKM_RSA_PKCS, sealed, &output);
  if (result != CKR_OK) return result;
  return extension.Agree(2, PointOfKey(TestEcKey(7).get()), &output);
}

// What happens at the k-th call.
struct Removal {
  std::string name;
  std::function<void(MemoryModule&, MemoryCard&, std::size_t)> at;
};
void PrintTo(const Removal& removal, std::ostream* out) { *out << removal.name; }

// Does something before the k-th call.
template <typename Action>
void Before(MemoryModule& module, std::size_t k, const Action& action) {
  module.before = [k, action](std::string_view) mutable {
    if (--k == 0) action();
    return CK_RV{CKR_OK};
  };
}

const std::vector<Removal> kRemovals = {
    {"FailingWithDeviceRemoved",
     [](auto& module, auto&, std::size_t k) { module.FailFrom(k, CKR_DEVICE_REMOVED); }},
    {"FailingWithTokenNotPresent",
     [](auto& module, auto&, std::size_t k) { module.FailFrom(k, CKR_TOKEN_NOT_PRESENT); }},
    {"FailingWithGeneralError",
     [](auto& module, auto&, std::size_t k) { module.FailFrom(k, CKR_GENERAL_ERROR); }},
    {"PulledAndSessionsEnded",
     [](auto& module, auto& card, std::size_t k) {
       Before(module, k, [&] { module.Pull(card); });
     }},
    {"PulledAndSessionsKept",
     [](auto& module, auto& card, std::size_t k) {
       module.keeps_sessions = true;
       Before(module, k, [&] { module.Pull(card); });
     }},
};

class PulledCardTest : public BehaviourTest, public testing::WithParamInterface<Removal> {};
INSTANTIATE_TEST_SUITE_P(, PulledCardTest, testing::ValuesIn(kRemovals),
                         [](const auto& info) { return info.param.name; });

TEST_P(PulledCardTest, AtEveryCall) {
  MemoryCard& card = AddCard();
  const auto library = Adapter();
  {
    Extension extension(library);
    ASSERT_EQ(Request(extension, card.pin), CKR_OK);
  }
  const std::size_t whole = module.Count();
  ASSERT_GT(whole, 60U);
  std::size_t calls = 0;  // of a request without the end
  testing::internal::CaptureStderr();
  for (std::size_t k = 1; k <= whole; ++k) {
    SCOPED_TRACE("call " + std::to_string(k));
    module.ForgetCalls();
    GetParam().at(module, card, k);
    {
      Extension extension(library);
      const CK_RV result = Request(extension, card.pin);
      if (result == CKR_OK) calls = module.Count();
      EXPECT_TRUE(result != CKR_OK || k > calls) << "only the end may fail without an error";
    }
    EXPECT_LE(module.Count(), whole + 20);
    module.Heal();
    module.before = nullptr;
    module.Insert(card);
    {
      Extension next(library);
      EXPECT_EQ(Request(next, card.pin), CKR_OK);
    }
    EXPECT_EQ(card.tries, 3);
    module.keeps_sessions = false;
  }
  testing::internal::GetCapturedStderr();
  EXPECT_GT(calls, 50U) << "only the end's few calls may fail without an error";
}

// The call of a set-up that looks at the token, which is chosen then.
constexpr std::size_t kChosen = 5;

// Another card takes the first one's place at every call after it was chosen: it sees no PIN.
TEST_F(PulledCardTest, AndAnotherOnePutInAtEveryCall) {
  MemoryCard& card = AddCard();
  MemoryCard& other = AddCard({.reader = "Other", .serial = "other", .pin = "111111"});
  other.is_present = false;
  other.slot = card.slot;
  const auto library = Adapter();
  {
    Extension extension(library);
    ASSERT_EQ(Request(extension, card.pin), CKR_OK);
  }
  const std::size_t whole = module.Count();
  for (std::size_t k = kChosen + 1; k <= whole; ++k) {
    SCOPED_TRACE("call " + std::to_string(k));
    Before(module, k, [&] { module.Insert(other); });
    {
      Extension extension(library);
      const CK_RV result = Request(extension, card.pin);
      EXPECT_TRUE(result != CKR_OK || k > whole - 5);
    }
    module.before = nullptr;
    module.Insert(card);
  }
  EXPECT_EQ(other.tries, 3);
  EXPECT_FALSE(other.is_logged_in);
}

class PulledSoftHsm : public BehaviourTest {
 protected:
  using Limit = std::size_t (*)(const char* path, std::size_t left);

  static constexpr std::size_t kNoLimit = static_cast<std::size_t>(-1);
  std::size_t LimitCalls(std::size_t left) const {
    return limit_(SoftHsmCard::Module().c_str(), left);
  }

  SoftHsmCard card_;

 private:
  Limit limit_ = reinterpret_cast<Limit>(
      dlsym(dlopen(KELVRIN_FAILING_OVER, RTLD_NOW | RTLD_LOCAL), "failing_over"));
};

TEST_F(PulledSoftHsm, AtEveryCall) {
  const auto library = Adapter("", "libX", KELVRIN_FAILING_OVER);
  LimitCalls(kNoLimit);
  {
    Extension extension(library);
    ASSERT_EQ(Request(extension, card_.pin()), CKR_OK);
  }
  const std::size_t whole = LimitCalls(kNoLimit);
  ASSERT_GT(whole, 60U);
  testing::internal::CaptureStderr();
  std::size_t errors = 0;
  for (std::size_t k = 0; k < whole; ++k) {
    SCOPED_TRACE("after " + std::to_string(k) + " calls");
    LimitCalls(k);
    {
      Extension extension(library);
      if (Request(extension, card_.pin()) != CKR_OK) ++errors;
    }
    EXPECT_LE(LimitCalls(kNoLimit), whole + 20);
    Extension next(library);
    EXPECT_EQ(Request(next, card_.pin()), CKR_OK);
  }
  testing::internal::GetCapturedStderr();
  EXPECT_GE(errors, whole - 5) << "only the end's few calls may fail without an error";
}

}  // namespace
}  // namespace kelvrin::adapter
