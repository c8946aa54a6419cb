// Two adapters over the fake module, as two copies of the library are.
#ifndef KELVRIN_ADAPTER_TESTING_TWO_ADAPTERS_FIXTURE_H_
#define KELVRIN_ADAPTER_TESTING_TWO_ADAPTERS_FIXTURE_H_

#include <gtest/gtest.h>

#include <array>
#include <string>

#include "adapter/adapter.h"
#include "adapter/testing/fake_module.h"

namespace kelvrin::adapter {

class TwoAdaptersTest : public testing::Test {
 protected:
  static constexpr CK_FLAGS kFlags = CKF_SERIAL_SESSION | CKF_RW_SESSION;

  TwoAdaptersTest() {
    fake_.objects[1] = {{CKA_CLASS, FakeModule::Number(CKO_PRIVATE_KEY)}, {CKA_ID, {1}}};
    for (Adapter* const adapter : {&first_, &second_}) {
      EXPECT_EQ(adapter->Initialize(nullptr), CKR_OK);
    }
  }

  static CK_SESSION_HANDLE Open(Adapter& adapter) {
    CK_SESSION_HANDLE session = 0;
    adapter.CatchUp();
    EXPECT_EQ(adapter.OpenSession(7, kFlags, nullptr, nullptr, &session), CKR_OK);
    return session;
  }
  static CK_RV LogIn(Adapter& adapter, CK_SESSION_HANDLE session, std::string pin) {
    adapter.CatchUp();
    return adapter.Login(session, CKU_USER, reinterpret_cast<CK_BYTE*>(pin.data()), pin.size());
  }
  static CK_RV SignInit(Adapter& adapter, CK_SESSION_HANDLE session) {
    CK_MECHANISM mechanism = {CKM_RSA_PKCS, nullptr, 0};
    adapter.CatchUp();
    return adapter.WithOperation(session, [&](KeyOperation& operation) {
      return operation.Init(OperationKind::kSign, &mechanism, 1);
    });
  }
  // How often the module is asked when the adapter is asked for the key.
  std::size_t Searches(Adapter& adapter, CK_SESSION_HANDLE session) {
    CK_OBJECT_CLASS object_class = CKO_PRIVATE_KEY;
    CK_BYTE id = 1;
    std::array<CK_ATTRIBUTE, 2> wanted = {
        {{CKA_CLASS, &object_class, sizeof(object_class)}, {CKA_ID, &id, 1}}};
    const std::size_t before = fake_.Calls("C_FindObjectsInit");
    adapter.CatchUp();
    EXPECT_EQ(adapter.FindObjectsInit(session, wanted.data(), wanted.size()), CKR_OK);
    return fake_.Calls("C_FindObjectsInit") - before;
  }

  FakeModule fake_;
  ModuleUses uses_;
  std::function<Backend()> open_ = [] {
    return Backend{.config = {}, .functions = FakeModule::functions(), .now = [] {
                     return SearchMemory::Clock::time_point(std::chrono::hours(1));
                   }};
  };
  Adapter first_{open_, &uses_};
  Adapter second_{open_, &uses_};
};

}  // namespace kelvrin::adapter

#endif  // KELVRIN_ADAPTER_TESTING_TWO_ADAPTERS_FIXTURE_H_
