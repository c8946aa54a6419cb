// Which calls may meet: none of one token, those of two tokens.
#include <gtest/gtest.h>

#include <atomic>
#include <barrier>
#include <thread>

#include "platform/linux/host/hosted_extension.h"
#import "platform/linux/host/testing/scripted_extension.h"

namespace host {
namespace {

using testing::key_item;
using testing::Script;

constexpr int kRequests = 50;

class ParallelTest : public ::testing::Test {
 protected:
  ParallelTest() {
    script.supported = {"algid:sign:RSA:raw"};
    script.items = {retained(key_item({2, 1}, @"key", [NSNumber numberWithBool:YES]))};
  }

  // Signs many times, with a client of the card.
  static void sign_often(const Client &client, const Item &key, std::atomic<int> *signatures) {
    for (int i = 0; i < kRequests; ++i) {
      if (client.sign(key, "RSASignatureRaw", {'x'}, {})) ++*signatures;
    }
  }

  Script script;
  const HostedExtension extension{retained([[[ScriptedDriver alloc] init] autorelease])};
  std::atomic<int> signatures = 0;
};

TEST_F(ParallelTest, CallsOfOneTokenNeverMeet) {
  std::atomic<int> inside = 0;
  std::atomic<int> meetings = 0;
  script.during_call = [&](const std::string &) {
    if (++inside > 1) ++meetings;
    std::this_thread::yield();
    --inside;
  };
  InsertedCard card = extension.insert_card();
  const Item key = *card.find_key("key");
  const Result<Client> one = card.open_client();
  const Result<Client> other = card.open_client();
  ASSERT_TRUE(one && other);
  std::thread first([&] { sign_often(*one, key, &signatures); });
  std::thread second([&] { sign_often(*other, key, &signatures); });
  first.join();
  second.join();
  EXPECT_EQ(signatures, 2 * kRequests);
  EXPECT_EQ(meetings, 0);
}

// Each call waits inside for one of the other token: were they kept apart, this would never end.
TEST_F(ParallelTest, CallsOfTwoTokensMeet) {
  std::barrier meeting(2);
  script.during_call = [&](const std::string &) { meeting.arrive_and_wait(); };
  InsertedCard one_card = extension.insert_card();
  InsertedCard other_card = extension.insert_card();
  ASSERT_NE(one_card.instance_id(), other_card.instance_id());
  const Item one_key = *one_card.find_key("key");
  const Item other_key = *other_card.find_key("key");
  const Result<Client> one = one_card.open_client();
  const Result<Client> other = other_card.open_client();
  ASSERT_TRUE(one && other);
  std::thread first([&] { sign_often(*one, one_key, &signatures); });
  std::thread second([&] { sign_often(*other, other_key, &signatures); });
  first.join();
  second.join();
  EXPECT_EQ(signatures, 2 * kRequests);
}

}  // namespace
}  // namespace host
