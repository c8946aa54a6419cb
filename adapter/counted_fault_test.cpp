// Faults that show in what the module sees rather than in what fails: how it is initialised, how
// often it is asked, and what would end the process.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "adapter/testing/fault_module.h"
#include "adapter/testing/fault_module_fixture.h"

namespace kelvrin::adapter {
namespace {

using Failures = std::vector<std::string>;
using Bytes = Road::Bytes;

constexpr CK_BYTE kRsaId = 1;
constexpr CK_BYTE kEcId = 2;

class CountedFaults : public FaultTest {
 protected:
  static std::string Without(const std::string& rule) { return "rules-off = " + rule + "\n"; }

  // The searches that ten signatures with one key cost.
  int SearchesForTenSignatures(const std::filesystem::path& library) {
    Road road(library);
    EXPECT_TRUE(road.SetUp() && road.LogIn());
    control_.searches = 0;
    Bytes signature;
    for (int i = 0; i < 10; ++i) {
      EXPECT_EQ(road.SignWith(kEcId, CKM_ECDSA, Bytes(32, 1), &signature), CKR_OK);
    }
    return control_.searches;
  }

  static Failures OperationsThatFail(const std::filesystem::path& library) {
    Road road(library);
    EXPECT_TRUE(road.SetUp() && road.LogIn());
    road.Sign();
    road.Decrypt();
    road.Agree();
    road.FailAndGoOn();
    return road.failures();
  }

  // The derived keys that are left when all agreements are over.
  int DerivedKeysLeft(const std::filesystem::path& library) {
    Road road(library);
    EXPECT_TRUE(road.SetUp() && road.LogIn());
    road.Agree();
    EXPECT_EQ(road.failures(), Failures());
    return control_.derived_keys;
  }

  static CK_RV SignRaw(const std::filesystem::path& library, const Bytes& data) {
    Road road(library);
    Bytes signature;
    if (!road.SetUp() || !road.LogIn()) return CKR_GENERAL_ERROR;
    return road.SignWith(kRsaId, CKM_RSA_X_509, data, &signature);
  }
};

TEST_F(CountedFaults, SystemsLocksAreAskedForByTheAdapterAlone) {
  Road(Module()).SetUp();
  EXPECT_FALSE(control_.is_locking);
  Road(Adapter()).SetUp();
  EXPECT_TRUE(control_.is_locking);
}

TEST_F(CountedFaults, ModuleThatCannotLockIsInitialisedWithoutLocks) {
  const auto library = Adapter();
  for (const Fault fault : {Fault::kCannotLock, Fault::kNeedsToCreateThreads}) {
    control_ = {.fault = fault};
    EXPECT_EQ(Road(library).Walk(), Failures());
    EXPECT_FALSE(control_.is_locking);
    EXPECT_EQ(control_.initialise_calls, 2);
  }
}

TEST_F(CountedFaults, WithoutTheRuleTheModuleIsInitialisedAsTheCallerSays) {
  EXPECT_EQ(Road(Adapter(Without("initialisation"))).Walk(), Failures());
  EXPECT_FALSE(control_.is_locking);
  EXPECT_EQ(control_.initialise_calls, 1);
}

TEST_F(CountedFaults, LongRawBlockEndsTheProcess) {
  control_.fault = Fault::kDiesOfLongBlocks;
  const Bytes block(257, 0);
  EXPECT_EXIT(SignRaw(Module(), block), testing::ExitedWithCode(5), "");
  EXPECT_EXIT(SignRaw(Adapter(Without("raw-rsa")), block), testing::ExitedWithCode(5), "");
}

TEST_F(CountedFaults, LongRawBlockNeverReachesTheModule) {
  control_.fault = Fault::kDiesOfLongBlocks;
  EXPECT_EQ(SignRaw(Adapter(), Bytes(257, 0)), CKR_DATA_LEN_RANGE);
}

TEST_F(CountedFaults, NullInputIsRefused) {
  control_.fault = Fault::kRefusesNullInput;
  EXPECT_EQ(SignRaw(Module(), Bytes()), CKR_ARGUMENTS_BAD);
  EXPECT_EQ(control_.null_inputs, 1);
}

TEST_F(CountedFaults, NullInputNeverReachesTheModule) {
  control_.fault = Fault::kRefusesNullInput;
  EXPECT_EQ(SignRaw(Adapter(), Bytes()), CKR_OK);
  EXPECT_EQ(control_.null_inputs, 0);
}

TEST_F(CountedFaults, DerivedKeysPileUpOnTheModuleAndWithoutTheRule) {
  EXPECT_EQ(DerivedKeysLeft(Module()), 4);
  EXPECT_EQ(DerivedKeysLeft(Adapter(Without("derivation"))), 4);
}

TEST_F(CountedFaults, DerivedKeysDoNotPileUpBehindTheAdapter) {
  EXPECT_EQ(DerivedKeysLeft(Adapter()), 1);
}

TEST_F(CountedFaults, EachSignatureCostsASearchOnTheModuleAndWithoutTheRule) {
  EXPECT_EQ(SearchesForTenSignatures(Module()), 10);
  EXPECT_EQ(SearchesForTenSignatures(Adapter(Without("search-memory"))), 10);
}

TEST_F(CountedFaults, OneSearchIsEnoughBehindTheAdapter) {
  EXPECT_EQ(SearchesForTenSignatures(Adapter()), 1);
}

TEST_F(CountedFaults, KeysWhoseHandlesChangeAllTheTimeAreFoundAgain) {
  control_.fault = Fault::kRenewsHandles;
  EXPECT_EQ(OperationsThatFail(Module()), Failures());
  EXPECT_EQ(OperationsThatFail(Adapter()), Failures());
}

TEST_F(CountedFaults, EachOperationGetsTheLoginThatItWants) {
  control_.fault = Fault::kKeysWantLogin;
  EXPECT_EQ(Road(Adapter()).Walk(), Failures());
  EXPECT_GT(control_.operations, 10);
  EXPECT_EQ(control_.context_logins, control_.operations);
  EXPECT_EQ(control_.wrong_pins, 0);
}

TEST_F(CountedFaults, KeysThatWantNoLoginGetNone) {
  EXPECT_EQ(Road(Adapter()).Walk(), Failures());
  EXPECT_EQ(control_.context_logins, 0);
}

TEST_F(CountedFaults, PinThatIsWrongByNowIsTriedOnce) {
  control_.fault = Fault::kKeysWantLogin;
  Road road(Adapter());
  ASSERT_TRUE(road.SetUp() && road.LogIn());
  control_.is_pin_changed = true;
  Bytes signature;
  for (int i = 0; i < 5; ++i) {
    EXPECT_NE(road.SignWith(kRsaId, CKM_RSA_X_509, Bytes(256, 1), &signature), CKR_OK);
  }
  EXPECT_EQ(control_.wrong_pins, 1);
}

TEST_F(CountedFaults, WithoutTheRuleNoPinIsTried) {
  control_.fault = Fault::kKeysWantLogin;
  Road road(Adapter(Without("context-login")));
  ASSERT_TRUE(road.SetUp() && road.LogIn());
  control_.is_pin_changed = true;
  Bytes signature;
  EXPECT_EQ(road.SignWith(kRsaId, CKM_RSA_X_509, Bytes(256, 1), &signature),
            CKR_USER_NOT_LOGGED_IN);
  EXPECT_EQ(control_.wrong_pins, 0);
}

}  // namespace
}  // namespace kelvrin::adapter
