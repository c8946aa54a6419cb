// Several threads on one adapter: every signature that comes back verifies.
#include <gtest/gtest.h>

#include <atomic>
#include <barrier>
#include <thread>
#include <vector>

#include "adapter/testing/copies_fixture.h"

namespace kelvrin::adapter {
namespace {

constexpr int kThreads = 4;
constexpr int kRounds = 25;

// Runs `work(thread number)` on every thread.
template <typename Work>
void OnThreads(const Work& work) {
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int i = 0; i < kThreads; ++i) threads.emplace_back(work, i);
  for (std::thread& thread : threads) thread.join();
}

class ThreadsTest : public CardTest {
 protected:
  ThreadsTest() : card_(LoadLibrary(Install("libX"))) { card_.Open(); }
  ~ThreadsTest() override { card_.p11->C_Finalize(nullptr); }

  // One ECDSA signature of a digest that is this thread's and round's own.
  static bool SignOnce(const Card& card, CK_OBJECT_HANDLE key, EVP_PKEY* public_key, int thread,
                       int round) {
    Bytes digest(32, static_cast<CK_BYTE>(thread));
    digest[0] = static_cast<CK_BYTE>(round);
    Bytes signature;
    return card.SignInit(CKM_ECDSA, key) == CKR_OK && card.Sign(digest, &signature) == CKR_OK &&
           VerifyEcdsa(public_key, digest, signature);
  }

  Card card_;
};

TEST_F(ThreadsTest, SessionsOfTheirOwnSignAtOnce) {
  ASSERT_EQ(card_.Login(soft_card_.pin()), CKR_OK);
  std::atomic<int> verified = 0;
  OnThreads([&](int thread) {
    Card own(card_.p11);
    own.OpenSession();
    const OpensslKey public_key = ReadPublicKey(soft_card_.File("ec.pub.pem"));
    for (int round = 0; round < kRounds; ++round) {
      const CK_OBJECT_HANDLE key = own.Find(CKO_PRIVATE_KEY, 2);
      if (SignOnce(own, key, public_key.get(), thread, round)) ++verified;
    }
  });
  EXPECT_EQ(verified, kThreads * kRounds);
}

TEST_F(ThreadsTest, OneSessionNeverGivesAWrongSignature) {
  ASSERT_EQ(card_.Login(soft_card_.pin()), CKR_OK);
  const CK_OBJECT_HANDLE key = card_.Find(CKO_PRIVATE_KEY, 2);
  std::atomic<int> begun = 0;
  std::atomic<int> verified = 0;
  OnThreads([&](int thread) {
    const OpensslKey public_key = ReadPublicKey(soft_card_.File("ec.pub.pem"));
    for (int round = 0; round < kRounds; ++round) {
      const CK_RV result = card_.SignInit(CKM_ECDSA, key);
      if (result == CKR_OPERATION_ACTIVE) continue;  // another thread's turn
      EXPECT_EQ(result, CKR_OK);
      ++begun;
      const Bytes digest(32, static_cast<CK_BYTE>(thread * kRounds + round));
      Bytes signature;
      EXPECT_EQ(card_.Sign(digest, &signature), CKR_OK);
      if (VerifyEcdsa(public_key.get(), digest, signature)) ++verified;
    }
  });
  EXPECT_GT(begun, 0);
  EXPECT_EQ(verified, begun);
}

TEST_F(ThreadsTest, InitialisingAndFinalisingMeanwhileIsSafe) {
  OnThreads([&](int thread) {
    for (int round = 0; round < kRounds; ++round) {
      CK_ULONG count = 0;
      if (thread == 0) {
        card_.p11->C_Finalize(nullptr);
        card_.p11->C_Initialize(nullptr);
      } else {
        const CK_RV result = card_.p11->C_GetSlotList(CK_TRUE, nullptr, &count);
        EXPECT_TRUE(result == CKR_OK || result == CKR_CRYPTOKI_NOT_INITIALIZED) << result;
      }
    }
  });
  CK_ULONG count = 0;
  EXPECT_EQ(card_.p11->C_GetSlotList(CK_TRUE, nullptr, &count), CKR_OK);
  EXPECT_EQ(count, 1u);
}

class CopiesOnThreadsTest : public CopiesTest {
 protected:
  CopiesOnThreadsTest() {
    for (int i = 0; i < kThreads; ++i) copies_.push_back(Load("lib" + std::to_string(i)));
  }

  std::vector<CK_FUNCTION_LIST*> copies_;
};

TEST_F(CopiesOnThreadsTest, TheirCallsNeverMeetInTheModule) {
  Card first(copies_[0]);
  BringUp(&first);
  std::atomic<int> verified = 0;
  OnThreads([&](int thread) {
    Card own(copies_[static_cast<std::size_t>(thread)]);
    own.p11->C_Initialize(nullptr);
    own.OpenSession();
    for (int round = 0; round < kRounds; ++round) {
      if (Signs(own, Bytes(32, static_cast<CK_BYTE>(thread * kRounds + round)))) ++verified;
    }
  });
  EXPECT_EQ(verified, kThreads * kRounds);
  EXPECT_EQ(watch_.overlaps, 0);
  EXPECT_EQ(watch_.initialised, 1);
}

TEST_F(CopiesOnThreadsTest, FirstCallsAtOnceCountTogether) {
  std::barrier start(kThreads);
  OnThreads([&](int thread) {
    start.arrive_and_wait();
    EXPECT_EQ(copies_[static_cast<std::size_t>(thread)]->C_Initialize(nullptr), CKR_OK);
  });
  EXPECT_EQ(watch_.initialised, 1);
  OnThreads([&](int thread) {
    EXPECT_EQ(copies_[static_cast<std::size_t>(thread)]->C_Finalize(nullptr), CKR_OK);
  });
  EXPECT_EQ(watch_.finalised, 1);
  EXPECT_EQ(watch_.overlaps, 0);
}

TEST_F(CopiesOnThreadsTest, ComingAndGoingOfSomeLeavesTheOthersSigning) {
  Card first(copies_[0]);
  BringUp(&first);
  std::atomic<int> verified = 0;
  OnThreads([&](int thread) {
    CK_FUNCTION_LIST* const copy = copies_[static_cast<std::size_t>(thread)];
    for (int round = 0; round < kRounds; ++round) {
      if (thread == 0) {
        if (Signs(first)) ++verified;
      } else {
        EXPECT_EQ(copy->C_Initialize(nullptr), CKR_OK);
        EXPECT_EQ(copy->C_Finalize(nullptr), CKR_OK);
      }
    }
  });
  EXPECT_EQ(verified, kRounds);
  EXPECT_EQ(watch_.initialised, 1);
  EXPECT_EQ(watch_.overlaps, 0);
}

}  // namespace
}  // namespace kelvrin::adapter
