// What applications see of cards that go in and out, and what they do with the keys on them.
#include "platform/linux/host/desktop.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#import "platform/linux/ctk/testing/change_notes.h"
#import "platform/linux/host/testing/scripted_extension.h"

namespace host {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using testing::KeyItem;
using testing::Script;

std::string TextOf(id object) { return object == nil ? "nil" : [[object description] UTF8String]; }

// The first key of all tokens, as an application has it; null when there is none.
SecKeyRef FindKey() {
  NSDictionary *query = @{
    (id)kSecClass : (id)kSecClassKey,
    (id)kSecAttrAccessGroup : (id)kSecAttrAccessGroupToken,
    (id)kSecReturnRef : [NSNumber numberWithBool:YES]
  };
  CFTypeRef key = nullptr;
  SecItemCopyMatching((CFDictionaryRef)query, &key);
  return (SecKeyRef)[(id)key autorelease];
}

// What signing "x" came to: the signature, or the error.
std::string Sign(SecKeyRef key) {
  @autoreleasepool {
    CFErrorRef error = nullptr;
    NSData *data = [NSData dataWithBytes:"x" length:1];
    NSData *signature = (NSData *)SecKeyCreateSignature(key, kSecKeyAlgorithmRSASignatureRaw,
                                                        (CFDataRef)data, &error);
    NSError *reason = [(NSError *)error autorelease];
    if (reason != nil) return TextOf([reason domain]) + " " + std::to_string([reason code]);
    const auto *bytes = static_cast<const char *>([[signature autorelease] bytes]);
    return {bytes, [signature length]};
  }
}

class DesktopTest : public ::testing::Test {
 protected:
  DesktopTest() {
    script.supported = {"algid:sign:RSA:raw"};
    script.items = {Retained(KeyItem({2, 1}, @"key", @"PIN"))};
    desktop.emplace(testing::ScriptedExtension(), "org.example", pin);
    desktop->AddReader("reader");
  }
  void Insert() {
    desktop->InsertCard("reader");
    desktop->Settle();
  }
  void Remove() {
    desktop->RemoveCard("reader");
    desktop->Settle();
  }

  TKSmartCardSlotState State() {
    return [[[TKSmartCardSlotManager defaultManager] slotNamed:@"reader"] state];
  }

  Script script;
  std::atomic<int> pins_asked = 0;
  PinSource pin = [this] {
    ++pins_asked;
    return testing::PinOf("1234")();
  };
  TKTokenWatcher *watcher = [[[TKTokenWatcher alloc] init] autorelease];
  std::optional<Desktop> desktop;
};

TEST_F(DesktopTest, ACardWithoutATokenIsACardInTheReader) {
  script.token = Script::Token::kNilWithError;
  Insert();
  EXPECT_EQ(State(), TKSmartCardSlotStateValidCard);
  EXPECT_EQ([[watcher tokenIDs] count], 0U);
  EXPECT_EQ(FindKey(), nullptr);
  Remove();
  EXPECT_EQ(State(), TKSmartCardSlotStateEmpty);
  EXPECT_THAT(script.calls(), ElementsAre("createToken"));
}

TEST_F(DesktopTest, KeysOfATokenWithoutSessionsFailAsItSays) {
  script.session = Script::Session::kNilWithError;
  Insert();
  EXPECT_EQ(Sign(FindKey()), "CryptoTokenKit -1");
  EXPECT_EQ(SecKeyIsAlgorithmSupported(FindKey(), kSecKeyOperationTypeSign,
                                       kSecKeyAlgorithmRSASignatureRaw),
            0);
}

TEST_F(DesktopTest, ATokenGoesWithItsCard) {
  Insert();
  SecKeyRef key = FindKey();
  Remove();
  EXPECT_EQ([[watcher tokenIDs] count], 0U);
  EXPECT_EQ(FindKey(), nullptr);
  EXPECT_EQ(State(), TKSmartCardSlotStateEmpty);
  EXPECT_EQ(Sign(key), "CryptoTokenKit -7");
  EXPECT_THAT(script.calls(), ElementsAre("createToken", "createSession", "terminateSession",
                                          "terminateToken", "dealloc token"));
}

TEST_F(DesktopTest, ACardPulledInTheMiddleLetsTheCallEndAndTheNextFail) {
  Insert();
  SecKeyRef key = FindKey();
  script.operation = [this](int, NSError **error) -> NSData * {
    desktop->RemoveCard("reader");
    while (FindKey() != nullptr) std::this_thread::yield();  // applications hear at once
    EXPECT_THAT(script.calls(), ::testing::Not(Contains("terminateToken")));
    *error = [NSError errorWithDomain:TKErrorDomain
                                 code:TKErrorCodeCommunicationError
                             userInfo:nil];
    return nil;
  };
  EXPECT_EQ(Sign(key), "CryptoTokenKit -2");
  EXPECT_EQ(Sign(key), "CryptoTokenKit -7");
  desktop->Settle();
  EXPECT_THAT(script.calls(), Contains("dealloc token"));
}

TEST_F(DesktopTest, ARemovedReaderTakesItsCardAlong) {
  Insert();
  TKSmartCardSlot *slot = [[TKSmartCardSlotManager defaultManager] slotNamed:@"reader"];
  desktop->RemoveReader("reader");
  desktop->Settle();
  EXPECT_EQ([slot state], TKSmartCardSlotStateMissing);
  EXPECT_EQ([[[TKSmartCardSlotManager defaultManager] slotNames] count], 0U);
  EXPECT_EQ([[watcher tokenIDs] count], 0U);
  EXPECT_THAT(script.calls(), Contains("dealloc token"));
}

TEST_F(DesktopTest, TheEndMakesTheChangesThatAreLeftAndRemovesAllReaders) {
  desktop->InsertCard("reader");
  desktop->AddReader("other");
  desktop->InsertCard("other");
  desktop.reset();
  EXPECT_EQ([[[TKSmartCardSlotManager defaultManager] slotNames] count], 0U);
  EXPECT_EQ([[watcher tokenIDs] count], 0U);
  const std::vector<std::string> calls = script.calls();
  EXPECT_EQ(std::ranges::count(calls, "createToken"), 2);
  EXPECT_EQ(std::ranges::count(calls, "dealloc token"), 2);
}

TEST_F(DesktopTest, ACardShowsItsTokenUnderTheExtensionsClassID) {
  Insert();
  ASSERT_EQ([[watcher tokenIDs] count], 1U);
  NSString *token_id = [[watcher tokenIDs] objectAtIndex:0];
  EXPECT_THAT(TextOf(token_id), ::testing::StartsWith("org.example:card "));
  EXPECT_EQ(TextOf([[watcher tokenInfoForTokenID:token_id] slotName]), "reader");
  NSDictionary *attributes = (NSDictionary *)SecKeyCopyAttributes(FindKey());
  EXPECT_TRUE([[[attributes autorelease] objectForKey:(id)kSecAttrTokenID] isEqual:token_id]);
}

TEST_F(DesktopTest, ACardIsProbedBeforeItIsValid) {
  desktop->Settle();
  ChangeNotes *notes =
      ChangesOf([[TKSmartCardSlotManager defaultManager] slotNamed:@"reader"], @"state");
  Insert();
  Remove();
  [notes stop];
  EXPECT_THAT([notes values], ElementsAre("2", "4", "1"));
}

TEST_F(DesktopTest, AKeySupportsWhatItsTokenReaches) {
  Insert();
  const struct {
    SecKeyOperationType operation;
    SecKeyAlgorithm algorithm;
    bool supported;
  } rows[] = {{kSecKeyOperationTypeSign, kSecKeyAlgorithmRSASignatureRaw, true},
              {kSecKeyOperationTypeSign, kSecKeyAlgorithmRSASignatureMessagePKCS1v15SHA256, true},
              {kSecKeyOperationTypeSign, kSecKeyAlgorithmECDSASignatureMessageX962SHA256, false},
              {kSecKeyOperationTypeDecrypt, kSecKeyAlgorithmRSASignatureRaw, false},
              {kSecKeyOperationTypeDecrypt, kSecKeyAlgorithmRSAEncryptionPKCS1, false},
              {kSecKeyOperationTypeKeyExchange, kSecKeyAlgorithmECDHKeyExchangeStandard, false},
              {kSecKeyOperationTypeSign, (SecKeyAlgorithm) @"unheard of", false}};
  for (const auto &row : rows) {
    EXPECT_EQ(SecKeyIsAlgorithmSupported(FindKey(), row.operation, row.algorithm) != 0,
              row.supported)
        << TextOf((id)row.algorithm);
  }
}

TEST_F(DesktopTest, ThePinIsAskedForWhenTheTokenWantsIt) {
  script.operation = [](int count, NSError **error) -> NSData * {
    if (count > 1) return [NSData dataWithBytes:"signed" length:6];
    *error = [NSError errorWithDomain:TKErrorDomain
                                 code:TKErrorCodeAuthenticationNeeded
                             userInfo:nil];
    return nil;
  };
  Insert();
  EXPECT_EQ(Sign(FindKey()), "signed");
  EXPECT_EQ(Sign(FindKey()), "signed");
  EXPECT_EQ(pins_asked, 1);
  EXPECT_THAT(script.calls(), Contains("finish 1234"));
  EXPECT_THAT(script.calls(), ::testing::Not(Contains(HasSubstr("outlived"))));
}

TEST_F(DesktopTest, ManyCardsLeaveNothing) {
  SecKeyRef key = nullptr;
  for (int i = 0; i < 100; ++i) {
    @autoreleasepool {
      Insert();
      key = (SecKeyRef)[(id)FindKey() retain];
      EXPECT_EQ(Sign(key), "x");
      Remove();
      [(id)key release];
    }
  }
  const std::vector<std::string> calls = script.calls();
  EXPECT_EQ(std::ranges::count(calls, "createToken"), 100);
  EXPECT_EQ(std::ranges::count(calls, "dealloc token"), 100);
}

TEST_F(DesktopTest, KeysMayBeUsedOnSeveralThreadsWhileCardsChange) {
  std::atomic<int> inside = 0;
  std::atomic<int> meetings = 0;
  script.during_call = [&](const std::string &) {
    if (++inside > 1) ++meetings;
    std::this_thread::yield();
    --inside;
  };
  Insert();
  const auto sign = [key = FindKey()] {
    for (int i = 0; i < 50; ++i) Sign(key);
  };
  std::thread one(sign);
  std::thread other(sign);
  desktop->AddReader("other");
  desktop->RemoveReader("other");
  one.join();
  other.join();
  EXPECT_EQ(meetings, 0);
}

}  // namespace
}  // namespace host
