// An adapter over the fake module.
#ifndef KELVRIN_ADAPTER_TESTING_ADAPTER_FIXTURE_H_
#define KELVRIN_ADAPTER_TESTING_ADAPTER_FIXTURE_H_

#include <gtest/gtest.h>

#include "adapter/adapter.h"
#include "adapter/testing/fake_module.h"

namespace kelvrin::adapter {

inline constexpr CK_FLAGS kAdapterFlags = CKF_SERIAL_SESSION | CKF_RW_SESSION;

class AdapterTest : public testing::Test {
 protected:
  CK_SESSION_HANDLE Open() {
    CK_SESSION_HANDLE session = 0;
    EXPECT_EQ(adapter_.OpenSession(7, kAdapterFlags, nullptr, nullptr, &session), CKR_OK);
    return session;
  }
  CK_RV SignInit(CK_SESSION_HANDLE session) {
    CK_MECHANISM mechanism = {CKM_RSA_PKCS, nullptr, 0};
    return adapter_.WithOperation(session, [&](KeyOperation& operation) {
      return operation.Init(OperationKind::kSign, &mechanism, 1);
    });
  }
  CK_OBJECT_HANDLE Derive(CK_SESSION_HANDLE session) {
    CK_MECHANISM mechanism = {CKM_DH_PKCS_DERIVE, nullptr, 0};
    CK_OBJECT_HANDLE key = 0;
    EXPECT_EQ(adapter_.DeriveKey(session, &mechanism, 2, nullptr, 0, &key), CKR_OK);
    return key;
  }

  FakeModule fake_;
  Config config_;
  Adapter adapter_{[this] {
    return Backend{.config = config_, .functions = FakeModule::functions(), .now = [] {
                     return SearchMemory::Clock::time_point(std::chrono::hours(1));
                   }};
  }};
};

}  // namespace kelvrin::adapter

#endif  // KELVRIN_ADAPTER_TESTING_ADAPTER_FIXTURE_H_
