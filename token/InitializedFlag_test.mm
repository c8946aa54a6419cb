// The flag `initialized`, which several threads read and write.
#include <latch>
#include <string>
#include <thread>

#import "token/Token.h"
#include "token/testing/session_fixture.h"

namespace token_testing {
namespace {

class InitializedFlagTest : public SessionTest {};

// ThreadSanitizer sees a plain access: one thread asks what a key supports, which reads the flag
// and sets it, while another's set-ups fail for want of a module, which clears it.
TEST_F(InitializedFlagTest, IsReadAndWrittenBySeveralThreadsAtOnce) {
  constexpr int kRounds = 50;
  bundle().Remove(std::string(kLindelModule) + ".dylib");
  std::latch start(2);
  std::thread other([&] {
    start.arrive_and_wait();
    for (int i = 0; i < kRounds; ++i) {
      @autoreleasepool {
        [[[Token alloc] initWithSmartCard:smart_card()
                                      AID:AID()
                              tokenDriver:(TKSmartCardTokenDriver *)driver()
                                    error:nullptr] release];
      }
    }
  });
  start.arrive_and_wait();
  int supported = 0;
  for (int i = 0; i < kRounds; ++i) {
    if ([session_ tokenSession:session_
             supportsOperation:TKTokenOperationSignData
                      usingKey:KeyObjectID(kRsaId)
                     algorithm:Algorithm(kSecKeyAlgorithmRSASignatureRaw)]) {
      ++supported;
    }
  }
  other.join();
  EXPECT_EQ(supported, kRounds);
}

}  // namespace
}  // namespace token_testing
