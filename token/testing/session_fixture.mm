#include "token/testing/session_fixture.h"

#include <algorithm>
#include <cctype>

#import "platform/linux/ctk/TKHostInterface.h"

@implementation DyingSession
- (void)setDeaths:(std::vector<std::string> *)deaths {
  _deaths = deaths;
}
- (void)dealloc {
  if (_deaths != nullptr) _deaths->emplace_back("session");
  [super dealloc];
}
@end

@implementation CountingSession
- (size_t)hexTexts {
  return _hexTexts;
}
- (size_t)tokenReads {
  return _tokenReads;
}
- (NSString *)asHex:(NSData *)data {
  ++_hexTexts;
  return [super asHex:data];
}
- (Token *)tsToken {
  ++_tokenReads;
  return [super tsToken];
}
@end

@implementation HexlessSession
- (NSString *)asHex:(NSData *)data {
  (void)data;
  return @"none";
}
@end

@implementation AskedAlgorithm
- (BOOL)isAlgorithm:(SecKeyAlgorithm)algorithm {
  _asked.push_back(token_testing::Utf8((NSString *)algorithm));
  if (_yesTo != 0) return _asked.size() == _yesTo;
  return [super isAlgorithm:algorithm];
}
- (std::vector<std::string>)asked {
  return _asked;
}
- (void)forget {
  _asked.clear();
}
- (void)sayYesTo:(size_t)n {
  _asked.clear();
  _yesTo = n;
}
@end

@implementation ClaimingData
+ (NSData *)dataOfLength:(NSUInteger)length {
  ClaimingData *data = [[[self alloc] init] autorelease];
  data->_length = length;
  return (NSData *)data;
}
- (NSUInteger)length {
  return _length;
}
- (const void *)bytes {
  return nullptr;
}
@end

namespace token_testing {
namespace {

id replacement = nil;

id Replacement(id self, SEL command, const void *bytes, NSUInteger length) {
  (void)self;
  (void)command;
  (void)bytes;
  (void)length;
  return replacement;
}

std::string Lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
  return text;
}

}  // namespace

TKTokenKeyAlgorithm *Algorithm(SecKeyAlgorithm target) {
  return [[[TKTokenKeyAlgorithm alloc] initWithAlgorithms:@[ (NSString *)target ]] autorelease];
}

AskedAlgorithm *Asked(SecKeyAlgorithm target) { return AskedString((NSString *)target); }

AskedAlgorithm *AskedString(NSString *target) {
  return [[[AskedAlgorithm alloc] initWithAlgorithms:@[ target ]] autorelease];
}

NSString *String(const std::string &text) { return [NSString stringWithUTF8String:text.c_str()]; }

std::string Utf8(NSString *text) {
  const char *bytes = [text UTF8String];
  return bytes == nullptr ? "(null)" : bytes;
}

std::string Text(NSError *error) {
  if (error == nil) return "none";
  NSString *domain =
      [[error domain] isEqualToString:TKErrorDomain] ? @"TKErrorDomain" : [error domain];
  std::string text = Utf8(domain) + " " + std::to_string([error code]) + " {";
  for (NSString *key in [error userInfo]) {
    const bool is_description = [key isEqualToString:NSLocalizedDescriptionKey];
    text += (is_description ? "NSLocalizedDescription" : Utf8(key)) + ": " +
            Utf8([[[error userInfo] objectForKey:key] description]);
  }
  return text + "}";
}

ReplacedData::ReplacedData(id answer)
    : method_(object_getClass([NSData class]), @selector(dataWithBytes:length:), (IMP)Replacement) {
  replacement = [answer retain];
}

ReplacedData::~ReplacedData() { [replacement release]; }

FoundationTest::FoundationTest() {
  const LeaksAllowed allowed;  // Foundation keeps some of what it makes at first use
  [NSDictionary dictionaryWithObject:[NSArray array] forKey:@""];
}

SessionTest::SessionTest() : token_(MakeToken()), session_(MakeSession(token_)) {
  card().session_state = CKS_RW_USER_FUNCTIONS;
  Forget();
}

void SessionTest::Forget() {
  lindel().ForgetCalls();
  vumo().ForgetCalls();
  recorder().clear();
  wrapped::Reset();
}

std::vector<std::string> SessionTest::Formats() {
  std::vector<std::string> formats;
  for (const oslog::Line &line : recorder().lines()) formats.push_back(line.format);
  return formats;
}

bool SessionTest::LogContains(const std::string &text) {
  const auto lines = recorder().lines();
  return std::any_of(lines.begin(), lines.end(), [&text](const oslog::Line &line) {
    return Lower(line.private_text() + "\n" + line.format).find(Lower(text)) != std::string::npos;
  });
}

id SessionTest::Session(Class session_class) {
  return [[[session_class alloc] initWithToken:token_] autorelease];
}

}  // namespace token_testing
