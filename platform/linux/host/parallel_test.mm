// Which calls may meet: none of one token, those of two tokens.
#include <gtest/gtest.h>

#include <atomic>
#include <barrier>
#include <thread>

#import "platform/linux/host/testing/scripted_extension.h"

namespace host {
namespace {

using testing::KeyItem;
using testing::Script;
using testing::ScriptedExtension;

constexpr int kRequests = 50;

class ParallelTest : public ::testing::Test {
 protected:
  ParallelTest() {
    script.supported = {"algid:sign:RSA:raw"};
    script.items = {Retained(KeyItem({2, 1}, @"key", [NSNumber numberWithBool:YES]))};
  }

  // Signs many times, with a client of each card at once. Returns the number of signatures.
  static int SignOften(InsertedCard *one, InsertedCard *other) {
    std::atomic<int> signatures = 0;
    const auto sign = [&signatures](const Client *client, const Item &key) {
      for (int i = 0; i < kRequests; ++i) {
        if (client->Perform(Operation::kSign, key, "RSASignatureRaw", {'x'}, {})) ++signatures;
      }
    };
    const Result<Client> first = one->OpenClient();
    const Result<Client> second = other->OpenClient();
    std::thread first_thread(sign, &*first, *one->FindKey("key"));
    std::thread second_thread(sign, &*second, *other->FindKey("key"));
    first_thread.join();
    second_thread.join();
    return signatures;
  }

  Script script;
  const HostedExtension extension = ScriptedExtension();
};

TEST_F(ParallelTest, CallsOfOneTokenNeverMeet) {
  std::atomic<int> inside = 0;
  std::atomic<int> meetings = 0;
  script.during_call = [&](const std::string &) {
    if (++inside > 1) ++meetings;
    std::this_thread::yield();
    --inside;
  };
  InsertedCard card = extension.InsertCard();
  EXPECT_EQ(SignOften(&card, &card), 2 * kRequests);
  EXPECT_EQ(meetings, 0);
}

// Each call waits inside for one of the other token: were they kept apart, this would never end.
TEST_F(ParallelTest, CallsOfTwoTokensMeet) {
  std::barrier meeting(2);
  script.during_call = [&](const std::string &) { meeting.arrive_and_wait(); };
  InsertedCard one = extension.InsertCard();
  InsertedCard other = extension.InsertCard();
  ASSERT_NE(one.instance_id(), other.instance_id());
  EXPECT_EQ(SignOften(&one, &other), 2 * kRequests);
}

}  // namespace
}  // namespace host
