// What the tests of the keychain items start from: a scripted module in the process, with a card.
#pragma once

#import <CryptoTokenKit/CryptoTokenKit.h>

#include <string>
#include <vector>

#include "platform/linux/ctk/TKHostInterface.h"
#include "platform/linux/log/log_recorder.h"
#include "tests/module/scripted_module.h"
#include "tests/module/wrapped_calls.h"
#include "token/testing/token_fixture.h"

namespace token_testing {

// Knows no test framework. Holds an autorelease pool: for one thread. The card is empty but for
// its slot; sessions need not be opened.
class CardFixture {
 public:
  CardFixture() {
    AddEmptyCard(&card_);
    wrapped::Reset();
  }
  ~CardFixture() {
    wrapped::Reset();
    [TKTokenKeychainItem setLabelsFromSubject:YES];
  }
  CardFixture(const CardFixture &) = delete;
  CardFixture &operator=(const CardFixture &) = delete;

  // The log so far, each line after its type.
  std::vector<std::string> Log() const { return recorder_.typed_texts(); }

 protected:
  Pool pool_;
  scripted::ScriptedModule module_;
  scripted::CardModel &card_ = module_.card();
  CK_FUNCTION_LIST *p11_ = module_.functions();
  oslog::Recorder recorder_;
};

// The log line of p11_error.
inline std::string ErrorLine(const std::string &what, const std::string &result) {
  return "error: PKCS11 function " + what + " failed: rv = " + result;
}

// A key's constraints as "2=PIN 3=PIN", in the order of the operations.
inline std::string Constraints(TKTokenKeychainItem *item) {
  if ([item constraints] == nil) return "nil";
  std::string text;
  for (NSNumber *operation in
       [[[item constraints] allKeys] sortedArrayUsingSelector:@selector(compare:)]) {
    if (!text.empty()) text += ' ';
    text += std::to_string([operation integerValue]) + '=' +
            Text([[[item constraints] objectForKey:operation] description]);
  }
  return text;
}

}  // namespace token_testing
