// A token's objects over the fake module, at a time of the test's own.
#ifndef KELVRIN_ADAPTER_TESTING_TOKEN_OBJECTS_FIXTURE_H_
#define KELVRIN_ADAPTER_TESTING_TOKEN_OBJECTS_FIXTURE_H_

#include <gtest/gtest.h>

#include <array>

#include "adapter/testing/fake_module.h"
#include "adapter/token_objects.h"

namespace kelvrin::adapter {

class TokenObjectsTest : public testing::Test {
 protected:
  TokenObjectsTest() {
    functions_.C_OpenSession(7, CKF_SERIAL_SESSION, nullptr, nullptr, &session_);
  }
  CK_OBJECT_HANDLE Add(CK_OBJECT_CLASS object_class, const Bytes& id, const Bytes& value = {}) {
    return fake_.Add({{CKA_CLASS, FakeModule::Number(object_class)},
                      {CKA_ID, id},
                      {CKA_LABEL, {'x'}},
                      {CKA_VALUE, value}});
  }
  Handles Find(CK_OBJECT_CLASS object_class, Bytes id) {
    std::array<CK_ATTRIBUTE, 2> wanted = {
        {{CKA_CLASS, &object_class, sizeof(object_class)}, {CKA_ID, id.data(), id.size()}}};
    Handles found;
    EXPECT_EQ(objects_.Find(session_, wanted, &found), CKR_OK);
    return found;
  }
  Handles FindAllOf(CK_OBJECT_CLASS object_class) {
    CK_ATTRIBUTE wanted = {CKA_CLASS, &object_class, sizeof(object_class)};
    Handles found;
    EXPECT_EQ(objects_.Find(session_, {&wanted, 1}, &found), CKR_OK);
    return found;
  }
  std::size_t Searches() const { return fake_.Calls("C_FindObjectsInit"); }
  void LetTheLookGrowOld() { now_ += SearchMemory::kTokenTrust; }

  FakeModule fake_;
  CK_FUNCTION_LIST functions_ = FakeModule::functions();
  CK_SESSION_HANDLE session_ = 0;
  Rules rules_ = Rules::Extension();
  SearchMemory::Clock::time_point now_{std::chrono::hours(1)};
  TokenObjects objects_{functions_, rules_, 7, [this] { return now_; }};
};

}  // namespace kelvrin::adapter

#endif  // KELVRIN_ADAPTER_TESTING_TOKEN_OBJECTS_FIXTURE_H_
