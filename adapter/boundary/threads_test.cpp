// Several threads on one adapter: one call at a time reaches the module, and every signature that
// comes back verifies.
#include <atomic>
#include <barrier>
#include <thread>

#include "adapter/testing/behaviour_fixture.h"

namespace kelvrin::adapter {
namespace {

constexpr int kThreads = 4;
constexpr int kRounds = 25;

// Runs `work(thread number)` on several threads, which begin together.
template <typename Work>
void OnThreads(const Work& work) {
  std::barrier start(kThreads);
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&, i] {
      start.arrive_and_wait();
      work(i);
    });
  }
  for (std::thread& thread : threads) thread.join();
}

class ThreadsTest : public BehaviourTest {
 protected:
  ThreadsTest() {
    EXPECT_EQ(first.SetUp(), CKR_OK);
    EXPECT_EQ(first.LogIn(card.pin), CKR_OK);
  }
  ~ThreadsTest() override { EXPECT_EQ(module.overlaps, 0); }

  MemoryCard& card = AddCard();
  Extension first{Adapter()};
};

TEST_F(ThreadsTest, InSessionsOfTheirOwnAllGetTheirSignatures) {
  std::vector<std::unique_ptr<Extension>> extensions;
  for (int i = 0; i < kThreads; ++i) {
    extensions.push_back(std::make_unique<Extension>(folder / "libX.dylib"));
    ASSERT_EQ(extensions.back()->SetUp(), CKR_OK);
  }
  std::atomic<int> good = 0;
  OnThreads([&](int thread) {
    Extension& own = *extensions[static_cast<std::size_t>(thread)];
    EVP_PKEY* const key = own.public_keys[2].get();
    Bytes signature;
    for (int round = 0; round < kRounds; ++round) {
      // What nobody else signs.
      const Bytes digest(32, static_cast<CK_BYTE>(thread * kRounds + round));
      if (own.Sign(2, CKM_ECDSA, digest, &signature) == CKR_OK &&
          VerifyEcdsa(key, digest, signature)) {
        ++good;
      }
    }
  });
  EXPECT_EQ(good, kThreads * kRounds);
}

TEST_F(ThreadsTest, InitialisingAndFinalisingMeanwhileIsSafe) {
  OnThreads([&](int thread) {
    for (int round = 0; round < kRounds; ++round) {
      CK_ULONG count = 0;
      CK_FUNCTION_LIST* list = nullptr;
      if (thread == 0) {
        first.p11->C_Finalize(nullptr);
        first.p11->C_Initialize(nullptr);
      } else {
        const CK_RV result = first.p11->C_GetSlotList(CK_TRUE, nullptr, &count);
        EXPECT_TRUE(result == CKR_OK || result == CKR_CRYPTOKI_NOT_INITIALIZED) << result;
        EXPECT_EQ(first.p11->C_GetFunctionList(&list), CKR_OK);
      }
    }
  });
  ASSERT_EQ(first.BringUp(), CKR_OK);
  ASSERT_EQ(first.LogIn(card.pin), CKR_OK);
  EXPECT_TRUE(first.SignsWith(card.KeyOf(ec.private_key)));
}

}  // namespace
}  // namespace kelvrin::adapter
