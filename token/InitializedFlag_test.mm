// The flag `initialized`, which several threads read and write.
#include <atomic>
#include <latch>
#include <string>
#include <thread>
#include <vector>

#import "token/Token.h"
#include "token/testing/session_fixture.h"

namespace token_testing {
namespace {

class InitializedFlagTest : public SessionTest {
 protected:
  // Asks what a key supports as long as another thread sets tokens up.
  void CheckSupportBesideSetUps() {
    constexpr int kRounds = 20;
    std::latch start(2);
    std::atomic<bool> done = false;  // relaxed, so that it orders nothing between the two
    std::thread other([&] {
      start.arrive_and_wait();
      for (int i = 0; i < kRounds; ++i) {
        @autoreleasepool {
          tokens_.push_back([[Token alloc] initWithSmartCard:smart_card()
                                                         AID:AID()
                                                 tokenDriver:(TKSmartCardTokenDriver *)driver()
                                                       error:nullptr]);
        }
      }
      done.store(true, std::memory_order_relaxed);
    });
    start.arrive_and_wait();
    int refused = 0;
    while (!done.load(std::memory_order_relaxed)) {
      @autoreleasepool {
        if (![session_ tokenSession:session_
                  supportsOperation:TKTokenOperationSignData
                           usingKey:KeyObjectID(kRsaId)
                          algorithm:Algorithm(kSecKeyAlgorithmRSASignatureRaw)]) {
          ++refused;
        }
      }
      std::this_thread::yield();  // or the module's lock hardly ever gets to the other thread
    }
    other.join();
    EXPECT_EQ(refused, 0);
    // Only now: the end of one would finalise the module under the checks.
    for (Token *token : tokens_) [token release];
  }

 private:
  std::vector<Token *> tokens_;
};

// ThreadSanitizer sees a plain access: one thread asks what a key supports, which reads the flag
// and sets it, while another's set-ups fail for want of a module, which clears it.
TEST_F(InitializedFlagTest, IsReadAndWrittenBySeveralThreadsAtOnce) {
  bundle().Remove(std::string(kLindelModule) + ".dylib");
  CheckSupportBesideSetUps();
}

TEST_F(InitializedFlagTest, ASetUpThatSucceedsSetsItBesideASupportCheck) {
  CheckSupportBesideSetUps();
}

}  // namespace
}  // namespace token_testing
