// Requests on several threads.
#include "token/OperationLock.h"

#include <latch>
#include <mutex>
#include <thread>

#import "token/TSAuthOperation.h"
#include "token/testing/card_request.h"

namespace token_testing {
namespace {

using scripted::Bytes;
using scripted::Function;

constexpr size_t kRounds = 60;

// A call, with the thread that made it.
struct Event {
  std::thread::id thread;
  Function function;
  CK_SESSION_HANDLE session;
};

// The calls that a request makes.
std::vector<Function> CallsOf(const CardRequest &request) {
  return {Function::C_GetSessionInfo, Function::C_FindObjectsInit, Function::C_FindObjects,
          request.init, request.result};
}

class OperationLockTest : public SessionTest {
 protected:
  OperationLockTest() {
    card().signature.bytes = {1, 2, 3};
    card().plaintext.bytes = {4, 5, 6};
    card().derived_secret.bytes = {7, 8, 9};
  }

  // Keeps the calls with their threads, and gives the other thread every occasion to get in
  // between.
  void Observe() {
    lindel().Observe([this](const scripted::Call &call) {
      {
        const std::lock_guard lock(mutex_);
        events_.push_back({std::this_thread::get_id(), call.function, call.arguments[0].number});
      }
      for (int i = 0; i < 20; ++i) std::this_thread::yield();
    });
  }

  // Runs both at the same time.
  template <typename First, typename Second>
  static void AtOnce(First first, Second second) {
    std::latch start(2);
    std::thread other([&] {
      start.arrive_and_wait();
      @autoreleasepool {
        second();
      }
    });
    start.arrive_and_wait();
    @autoreleasepool {
      first();
    }
    other.join();
  }

  // Makes a request of a session and holds its result against the card's answer.
  static void Run(const CardRequest &request, TokenSession *session, const Bytes &result) {
    @autoreleasepool {
      NSError *error = nil;
      EXPECT_EQ(BytesOf(Make(request, session, session, Data({1}), KeyOf(request),
                             AlgorithmOf(request), nil, &error)),
                result);
    }
  }
  static void Sign(TokenSession *session) { Run(kSign, session, {1, 2, 3}); }
  static void Decrypt(TokenSession *session) { Run(kDecrypt, session, {4, 5, 6}); }
  static void Agree(TokenSession *session) { Run(kExchange, session, {7, 8, 9}); }

  // Every five calls in a row are one thread's, on one session, and one operation's in its order.
  void ExpectWholeOperations(size_t count) {
    ASSERT_EQ(events_.size(), 5 * count);
    for (size_t i = 0; i < events_.size(); i += 5) {
      std::vector<Function> functions;
      for (size_t j = i; j < i + 5; ++j) {
        ASSERT_EQ(events_[j].thread, events_[i].thread) << "call " << j;
        ASSERT_EQ(events_[j].session, events_[i].session) << "call " << j;
        functions.push_back(events_[j].function);
      }
      EXPECT_TRUE(functions == CallsOf(kSign) || functions == CallsOf(kDecrypt) ||
                  functions == CallsOf(kExchange));
    }
  }

  std::mutex mutex_;
  std::vector<Event> events_;
};

TEST_F(OperationLockTest, SignaturesOfTwoSessionsNeverInterleave) {
  TokenSession *other = MakeSession(token_);
  Observe();
  AtOnce(
      [&] {
        for (size_t i = 0; i < kRounds; ++i) Sign(session_);
      },
      [&] {
        for (size_t i = 0; i < kRounds; ++i) Sign(other);
      });
  ExpectWholeOperations(2 * kRounds);
}

TEST_F(OperationLockTest, DifferentOperationsNeverInterleaveEither) {
  TokenSession *other = MakeSession(token_);
  Observe();
  AtOnce(
      [&] {
        for (size_t i = 0; i < kRounds; ++i) {
          Sign(session_);
          Decrypt(session_);
          Agree(session_);
        }
      },
      [&] {
        for (size_t i = 0; i < kRounds; ++i) {
          Agree(other);
          Decrypt(other);
          Sign(other);
        }
      });
  ExpectWholeOperations(6 * kRounds);
}

TEST_F(OperationLockTest, OneSessionUsedByTwoThreadsKeepsItsRequestsApart) {
  Observe();
  AtOnce(
      [&] {
        for (size_t i = 0; i < kRounds; ++i) Decrypt(session_);
      },
      [&] {
        for (size_t i = 0; i < kRounds; ++i) Agree(session_);
      });
  ExpectWholeOperations(2 * kRounds);
}

TEST_F(OperationLockTest, TwoTokensOfOneModuleAreKeptApartToo) {
  Token *second = MakeToken();
  ASSERT_EQ([second session], kSession + 1);
  TokenSession *other = MakeSession(second);
  card().session_state = CKS_RW_USER_FUNCTIONS;
  Observe();
  AtOnce(
      [&] {
        for (size_t i = 0; i < kRounds; ++i) Sign(session_);
      },
      [&] {
        for (size_t i = 0; i < kRounds; ++i) Decrypt(other);
      });
  ExpectWholeOperations(2 * kRounds);
  for (const Event &event : events_) {
    EXPECT_EQ(event.session, event.thread == std::this_thread::get_id() ? kSession : kSession + 1);
  }
}

TEST_F(OperationLockTest, AFailedRequestLetsTheNextOneIn) {
  NSError *error = nil;
  for (Function function : CallsOf(kSign)) {
    lindel().ReturnOnce(function, CKR_DEVICE_ERROR);
    EXPECT_EQ([session_ tokenSession:session_
                            signData:Data({1})
                            usingKey:KeyObjectID(kRsaId)
                           algorithm:Algorithm(kSecKeyAlgorithmRSASignatureRaw)
                               error:&error],
              nil);
    std::thread([&] { Decrypt(session_); }).join();
  }
}

// The platform may ask for a login, an algorithm or a token, or let one go, while another request
// is at the card.
TEST_F(OperationLockTest, LoginSupportCheckAndSetUpDoNotWaitForAnOperation) {
  TSAuthOperation *operation = [[[TSAuthOperation alloc] initWithSession:session_
                                                                  authID:nil] autorelease];
  [operation setPIN:@"1"];
  size_t asked = 0;
  lindel().Observe([&](const scripted::Call &call) {
    if (call.function != Function::C_SignInit) return;
    ++asked;
    initialized = 0;  // the check brings the module up again
    EXPECT_TRUE([session_ tokenSession:session_
                     supportsOperation:TKTokenOperationSignData
                              usingKey:KeyObjectID(kRsaId)
                             algorithm:Algorithm(kSecKeyAlgorithmRSASignatureRaw)]);
    EXPECT_FALSE([operation finishWithError:nullptr]) << "logged in already";
    Token *token = MakeToken();
    EXPECT_NE([token p11], nullptr) << "none of its calls comes here again";
    Release(token);
  });
  Sign(session_);
  EXPECT_EQ(asked, 1u);
}

TEST_F(OperationLockTest, TheLockIsHeldByOneThreadAtATime) {
  size_t plain = 0;  // not atomic: a race is what the thread sanitizer would report
  const auto count = [&plain] {
    for (size_t i = 0; i < 10000; ++i) {
      const OperationLock lock;
      ++plain;
    }
  };
  AtOnce(count, count);
  EXPECT_EQ(plain, 20000u);
}

}  // namespace
}  // namespace token_testing
