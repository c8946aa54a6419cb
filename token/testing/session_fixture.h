// What the tests of sessions start from: a logged-in session on the default card, and objects that
// tell what they were asked.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#import "token/Token.h"
#import "token/TokenSession.h"
#include "token/testing/leaks.h"
#include "token/testing/replaced_method.h"
#include "token/testing/timeline.h"
#include "token/testing/token_fixture.h"

// Tells on its deallocation. The list that it is given must outlive it.
@interface DyingSession : TokenSession {
  std::vector<std::string> *_deaths;
}
- (void)setDeaths:(std::vector<std::string> *)deaths;
@end

// Counts what the session does with itself.
@interface CountingSession : DyingSession {
  size_t _hexTexts;
  size_t _tokenReads;
}
- (size_t)hexTexts;    // calls of asHex:
- (size_t)tokenReads;  // calls of tsToken
@end

// Makes no hexadecimal text of anything.
@interface HexlessSession : TokenSession
@end

// Keeps the algorithms that it is asked for, in order.
@interface AskedAlgorithm : TKTokenKeyAlgorithm {
  std::vector<std::string> _asked;
  size_t _yesTo;
}
- (std::vector<std::string>)asked;
- (void)forget;
// Answers YES to the n-th question from now on, 1 being the next, and NO to all others.
- (void)sayYesTo:(size_t)n;
@end

// Stands for data of a length that no memory holds; it has no bytes.
@interface ClaimingData : NSObject {
  NSUInteger _length;
}
// Autoreleased.
+ (NSData *)dataOfLength:(NSUInteger)length;
@end

namespace token_testing {

// An algorithm as the platform hands it over, autoreleased.
TKTokenKeyAlgorithm *Algorithm(SecKeyAlgorithm target);
AskedAlgorithm *Asked(SecKeyAlgorithm target);
// An algorithm named by its string, autoreleased.
AskedAlgorithm *AskedString(NSString *target);

NSString *String(const std::string &text);
std::string Utf8(NSString *text);

// "TKErrorDomain -3 {NSLocalizedDescription: Fehler beim Signieren.}"; "none" for nil.
std::string Text(NSError *error);

// While it lives, +[NSData dataWithBytes:length:] answers the object it is given.
class ReplacedData {
 public:
  explicit ReplacedData(id answer);
  ~ReplacedData();
  ReplacedData(const ReplacedData &) = delete;
  ReplacedData &operator=(const ReplacedData &) = delete;

 private:
  ReplacedMethod method_;
};

// For what needs Foundation and nothing else: holds an autorelease pool.
class FoundationTest : public testing::Test {
 protected:
  FoundationTest();

 private:
  Pool pool_;
};

class SessionTest : public testing::Test, protected TokenFixture {
 protected:
  SessionTest();

  // Forgets calls and log lines so far.
  void Forget();
  std::vector<std::string> Calls() { return lindel().Texts(); }
  // The log as a stock system shows it.
  std::vector<std::string> PublicLog() { return recorder().typed_texts(oslog::ShowPrivate::kNo); }
  // The formats of the log's lines, as the source has them.
  std::vector<std::string> Formats();
  // Whether the text is in a line of the log or in its format, case ignored.
  bool LogContains(const std::string &text);
  // A session of the token of a class, autoreleased.
  id Session(Class session_class);

  Token *token_;
  TokenSession *session_;
};

}  // namespace token_testing
