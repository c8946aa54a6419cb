// What the tests of init start from: a module that counts as loaded already.
#pragma once

#include <algorithm>
#include <cstdlib>

#include "p11/bringup.h"
#include "tests/module/p11_fixture.h"

namespace scripted {

class BringupTest : public P11Test {
 protected:
  static constexpr CK_ULONG kUntouched = 4321;

  // init leaves its slot arrays behind; the leak check is to see only other leaks.
  ~BringupTest() override {
    const wrapped::Calls& calls = wrapped::calls();
    for (size_t i = 0; i < std::min(calls.calloc_count, std::size(calls.callocs)); ++i) {
      if (!calls.callocs[i].freed) free(calls.callocs[i].address);
    }
  }

  CK_RV Init(const char* reader_name) {
    return init("/nowhere/module.so", &handle_, &list_, &slot_, &session_, reader_name);
  }

  void* handle_ = static_cast<void*>(&handle_);  // any value but null
  CK_FUNCTION_LIST* list_ = p11_;
  CK_SLOT_ID slot_ = kUntouched;
  CK_SESSION_HANDLE session_ = kUntouched;
};

}  // namespace scripted
