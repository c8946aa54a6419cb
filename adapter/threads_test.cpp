// Several threads on one adapter: every signature that comes back verifies.
#include <gtest/gtest.h>

#include <atomic>
#include <barrier>
#include <optional>
#include <thread>
#include <vector>

#include "adapter/testing/copies_fixture.h"

namespace kelvrin::adapter {
namespace {

constexpr int kThreads = 4;
constexpr int kRounds = 25;

// Runs `work(thread number)` on so many threads, which begin together.
template <typename Work>
void OnThreads(int count, const Work& work) {
  std::barrier start(count);
  std::vector<std::thread> threads;
  threads.reserve(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) {
    threads.emplace_back([&, i] {
      start.arrive_and_wait();
      work(i);
    });
  }
  for (std::thread& thread : threads) thread.join();
}
template <typename Work>
void OnThreads(const Work& work) {
  OnThreads(kThreads, work);
}

class ThreadsTest : public CardTest {
 protected:
  ThreadsTest() : card_(LoadLibrary(Install("libX"))) { card_.Open(); }
  ~ThreadsTest() override { card_.p11->C_Finalize(nullptr); }

  Card card_;
};

// Requests as the extension makes them: five calls each, with two keys in turn, the searches never
// finished.
class RequestsOnThreadsTest : public ThreadsTest, public testing::WithParamInterface<int> {
 protected:
  enum Key : CK_BYTE { kRsa, kEc };
  // Of a thread, in a round.
  static Key KeyOf(int thread, int round) { return (thread + round) % 2 == 0 ? kRsa : kEc; }

  void SetUp() override {
    ASSERT_EQ(card_.Login(soft_card_.pin()), CKR_OK);
    for (const Key key : {kRsa, kEc}) handles_[key] = card_.Find(CKO_PRIVATE_KEY, IdOf(key));
    ASSERT_NE(handles_[kRsa], handles_[kEc]);
  }

  CK_RV BeginSearch(const Card& card, Key key) const {
    return card.FindInit(CKO_PRIVATE_KEY, IdOf(key));
  }
  // Reads the thread's search and begins to sign with what it found, which must be that key.
  CK_RV BeginSigning(const Card& card, Key key) const {
    CK_OBJECT_HANDLE found[10] = {};
    CK_ULONG count = 10;
    EXPECT_EQ(card.p11->C_FindObjects(card.session, found, 10, &count), CKR_OK);
    EXPECT_EQ(count, 1U);
    EXPECT_EQ(found[0], handles_[key]);
    return card.SignInit(key == kRsa ? CKM_RSA_X_509 : CKM_ECDSA, found[0]);
  }
  // Signs what nobody else signs; whether the signature is that key's.
  bool FinishSigning(const Card& card, Key key, int thread, int round) const {
    Bytes data(key == kRsa ? 256 : 32, static_cast<CK_BYTE>(thread));
    data[0] = 0;
    data[1] = static_cast<CK_BYTE>(round);
    Bytes signature;
    EXPECT_EQ(card.Sign(data, &signature), CKR_OK);
    if (key == kEc) return VerifyEcdsa(PublicKey("ec.pub.pem").get(), data, signature);
    return signature.size() == 256 &&
           RawRsaPublic(PublicKey("rsa.pub.pem").get(), signature) == data;
  }

  // A whole request. Nothing when another thread's operation was under way, otherwise whether the
  // signature is good.
  std::optional<bool> Request(const Card& card, int thread, int round) const {
    const Key key = KeyOf(thread, round);
    CK_SESSION_INFO info = {};
    EXPECT_EQ(card.p11->C_GetSessionInfo(card.session, &info), CKR_OK);
    EXPECT_EQ(BeginSearch(card, key), CKR_OK);
    std::this_thread::yield();
    const CK_RV result = BeginSigning(card, key);
    if (result == CKR_OPERATION_ACTIVE) return std::nullopt;
    EXPECT_EQ(result, CKR_OK);
    std::this_thread::yield();
    return FinishSigning(card, key, thread, round);
  }

 private:
  static CK_BYTE IdOf(Key key) { return static_cast<CK_BYTE>(key + 1); }
  OpensslKey PublicKey(const char* file) const { return ReadPublicKey(soft_card_.File(file)); }

  CK_OBJECT_HANDLE handles_[2] = {};
};
INSTANTIATE_TEST_SUITE_P(Threads, RequestsOnThreadsTest, testing::Values(2, 4, 8),
                         testing::PrintToStringParamName());

TEST_P(RequestsOnThreadsTest, InSessionsOfTheirOwnAllGetTheirSignatures) {
  std::atomic<int> good = 0;
  OnThreads(GetParam(), [&](int thread) {
    Card own(card_.p11);
    own.OpenSession();
    for (int round = 0; round < kRounds; ++round) {
      if (Request(own, thread, round) == true) ++good;
    }
  });
  EXPECT_EQ(good, GetParam() * kRounds);
}

TEST_P(RequestsOnThreadsTest, OnOneSessionGetTheirSignaturesOrAreTurnedAway) {
  std::atomic<int> good = 0;
  std::atomic<int> turned_away = 0;
  OnThreads(GetParam(), [&](int thread) {
    for (int round = 0; round < kRounds; ++round) {
      const std::optional<bool> result = Request(card_, thread, round);
      if (!result) {
        ++turned_away;
      } else if (*result) {
        ++good;
      }
    }
  });
  EXPECT_GT(good, 0);
  EXPECT_EQ(good + turned_away, GetParam() * kRounds);
  // Nothing is left over that would turn away who comes later.
  for (int round = 0; round < kRounds; ++round) EXPECT_EQ(Request(card_, 0, round), true);
}

TEST_P(RequestsOnThreadsTest, OnOneSessionStepByStepFindTheirOwnKeysAndOneOfThemSigns) {
  std::barrier step(GetParam());
  std::atomic<int> good = 0;
  std::atomic<int> turned_away = 0;
  OnThreads(GetParam(), [&](int thread) {
    for (int round = 0; round < kRounds; ++round) {
      const Key key = KeyOf(thread, round);
      EXPECT_EQ(BeginSearch(card_, key), CKR_OK);
      step.arrive_and_wait();
      const CK_RV result = BeginSigning(card_, key);
      step.arrive_and_wait();
      if (result == CKR_OPERATION_ACTIVE) {
        ++turned_away;
      } else if (result == CKR_OK && FinishSigning(card_, key, thread, round)) {
        ++good;
      }
      step.arrive_and_wait();
    }
  });
  EXPECT_EQ(good, kRounds);
  EXPECT_EQ(turned_away, (GetParam() - 1) * kRounds);
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
