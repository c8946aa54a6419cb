// The slots of an adapter over the fake module.
#ifndef KELVRIN_ADAPTER_TESTING_SLOTS_FIXTURE_H_
#define KELVRIN_ADAPTER_TESTING_SLOTS_FIXTURE_H_

#include <gtest/gtest.h>

#include <iterator>
#include <string>
#include <vector>

#include "adapter/slots.h"
#include "adapter/testing/fake_module.h"

namespace kelvrin::adapter {

class SlotsTest : public testing::Test {
 protected:
  // The slots that are shown, in the usual two steps.
  std::vector<CK_SLOT_ID> Shown() {
    CK_ULONG count = 99;
    EXPECT_EQ(slots_.GetSlotList(CK_TRUE, nullptr, &count), CKR_OK);
    std::vector<CK_SLOT_ID> shown(count);
    EXPECT_EQ(slots_.GetSlotList(CK_TRUE, shown.data(), &count), CKR_OK);
    EXPECT_EQ(count, shown.size());
    return shown;
  }
  std::string Label() {
    CK_TOKEN_INFO info = {};
    EXPECT_EQ(slots_.GetTokenInfo(7, &info), CKR_OK);
    return std::string(std::begin(info.label), std::end(info.label));
  }
  std::string Description() {
    CK_SLOT_INFO info = {};
    EXPECT_EQ(slots_.GetSlotInfo(7, &info), CKR_OK);
    return std::string(std::begin(info.slotDescription), std::end(info.slotDescription));
  }
  // What standard error says while the slots are listed.
  std::string Told() {
    testing::internal::CaptureStderr();
    Shown();
    return testing::internal::GetCapturedStderr();
  }
  static std::string Padded(std::string text, std::size_t size) {
    text.resize(size, ' ');
    return text;
  }

  FakeModule fake_;
  CK_FUNCTION_LIST functions_ = FakeModule::functions();
  Config config_;
  Slots slots_{functions_, config_};
};

}  // namespace kelvrin::adapter

#endif  // KELVRIN_ADAPTER_TESTING_SLOTS_FIXTURE_H_
