// What the tests of p11 start from: a scripted module, the log, and standard output.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <os/log.h>

#include <string>
#include <vector>

#include "platform/linux/log/log_recorder.h"
#include "tests/module/captured_output.h"
#include "tests/module/scripted_module.h"
#include "tests/module/wrapped_calls.h"

namespace scripted {

class P11Test : public testing::Test {
 protected:
  P11Test() { wrapped::Reset(); }
  ~P11Test() override { wrapped::Reset(); }

  // The log so far, each line after its type; private arguments are shown, or as on a stock system.
  std::vector<std::string> Log() const { return recorder_.typed_texts(); }
  std::vector<std::string> PublicLog() const {
    return recorder_.typed_texts(oslog::ShowPrivate::kNo);
  }

  static constexpr CK_SESSION_HANDLE kSession = 77;

  ScriptedModule module_;
  CardModel& card_ = module_.card();
  CK_FUNCTION_LIST* p11_ = module_.functions();
  oslog::Recorder recorder_;
};

}  // namespace scripted
