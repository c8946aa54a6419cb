// The window over the real extension and a card.
#include <atomic>

// Declared in debug builds alone, and there in all.
extern "C" BOOL GSDebugAllocationActive(BOOL active);
extern "C" int GSDebugAllocationCount(Class counted);
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#import "app/Application.h"
#include "app/model/export.h"
#import "app/view/testing/display.h"
#import "app/view/testing/picture.h"
#include "platform/linux/host/testing/text_files.h"
#include "tests/card/softhsm_card.h"
#include "tests/window/desk.h"
#include "tests/window/desk_system.h"

extern "C" void __lsan_do_leak_check() __attribute__((weak));  // NOLINT: the sanitizer's own name

// Saves where the test says.
@interface DeskSurroundings : Surroundings {
 @public
  NSString *_path;
}
@end

@implementation DeskSurroundings
- (NSString *)pathToSave:(NSString *)name {
  return _path;
}
@end

namespace window {
namespace {

using kelvrin::app::State;
using kelvrin::app::Verdict;
using kelvrin::app::WindowModel;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

// A display, and a card with the application installed beside it.
class Room : public testing::Environment {
 public:
  void SetUp() override {
    display_ = std::make_unique<Display>();
    // One that stands in no certificate or path.
    card_ = std::make_unique<kelvrin::SoftHsmCard>(kelvrin::CardOptions{.pin = "73920481"});
    application_ = Install(card_->directory());
  }
  void TearDown() override {
    // As long as the extension's file is there, what it keeps on purpose is known by names.
    if (__lsan_do_leak_check != nullptr) __lsan_do_leak_check();
    card_.reset();
    display_.reset();
  }
  const kelvrin::SoftHsmCard &card() const { return *card_; }
  const std::filesystem::path &application() const { return application_; }

 private:
  std::unique_ptr<Display> display_;
  std::unique_ptr<kelvrin::SoftHsmCard> card_;
  std::filesystem::path application_;
};
Room *const kRoom = new Room;
testing::Environment *const kEnvironment = testing::AddGlobalTestEnvironment(kRoom);

std::string Text(NSString *text) { return text == nil ? "nil" : [text UTF8String]; }

// A language for the application, and the question for the PIN answered by the test.
class WindowOnDesk : public testing::Test {
 protected:
  WindowOnDesk() : WindowOnDesk("en") {}
  explicit WindowOnDesk(const char *language) {
    setenv("LANGUAGES", language, 1);
    application_ = [[Application alloc] initWithSystem:&system()
                                                 texts:&texts()
                                          surroundings:surroundings_];
    [[application_ window] show];
  }
  ~WindowOnDesk() override {
    [application_ release];
    [surroundings_ release];
    texts_.reset();
    system_.reset();
    desk_.reset();
    unsetenv("LANGUAGES");
  }

  Desk &desk() {
    if (!desk_) {
      desk_ = std::make_unique<Desk>(kRoom->application(), [this] {
        ++asked_;
        if (when_asked_) when_asked_();
        host::Secret pin;
        std::ranges::copy(pin_, pin.room().begin());
        pin.Resize(pin_.size());
        return pin;
      });
    }
    return *desk_;
  }
  DeskSystem &system() {
    if (!system_) system_ = std::make_unique<DeskSystem>(desk().bundle());
    return *system_;
  }
  const kelvrin::app::Texts &texts() {
    if (!texts_) texts_.emplace(kelvrin::app::TextsOf(desk().bundle()));
    return *texts_;
  }
  MainWindow *window() const { return [application_ window]; }
  const WindowModel &model() const { return *[application_ model]; }
  std::string Sentence() const { return Text([[[window() status] sentence] stringValue]); }
  std::string Outcome() const { return Text([[[window() detail] outcome] stringValue]); }
  void Picture(const std::string &name) const {
    SavePicture([window() window], std::string(KELVRIN_PICTURES) + "/" + name + ".png");
  }

  // Lets the window live until a condition holds; fails after some seconds that are never needed.
  template <typename Condition>
  void Await(Condition condition) {
    for (int turns = 0; !condition(); ++turns) {
      ASSERT_LT(turns, 2000) << Sentence();
      @autoreleasepool {
        [[NSRunLoop currentRunLoop] runMode:NSDefaultRunLoopMode
                                 beforeDate:[NSDate dateWithTimeIntervalSinceNow:0.03]];
      }
    }
  }
  void AwaitState(State state) {
    Await([&] { return model().situation().state == state; });
  }
  void InsertCard() {
    desk().desktop().AddReader(kReader);
    desk().desktop().InsertCard(kReader);
    AwaitState(State::kReady);
  }
  void SelectCertificate(const std::string &name) {
    for (size_t row = 0; row < model().certificates().size(); ++row) {
      if (model().certificates()[row].name != name) continue;
      [[[window() certificates] table] selectRowIndexes:[NSIndexSet indexSetWithIndex:row]
                                   byExtendingSelection:NO];
    }
    ASSERT_EQ(model().selected()->name, name);
  }
  void TryAndAwait() {
    [[[window() detail] tryButton] performClick:nil];
    Await([&] { return !model().trial()->running(); });
  }

  std::string pin_ = kRoom->card().pin();
  std::function<void()> when_asked_;  // on the thread that uses the key
  std::atomic<int> asked_ = 0;
  DeskSurroundings *surroundings_ = [[DeskSurroundings alloc] initWithGuide:@""];
  std::unique_ptr<Desk> desk_;
  std::unique_ptr<DeskSystem> system_;
  std::optional<kelvrin::app::Texts> texts_;
  Application *application_;
};

class GermanWindowOnDesk : public WindowOnDesk {
 protected:
  GermanWindowOnDesk() : WindowOnDesk("de") {}
};

TEST_F(WindowOnDesk, FollowsReaderAndCardWithoutAButton) {
  AwaitState(State::kNoReader);
  EXPECT_EQ(Sentence(), "There is no reader");
  desk().desktop().AddReader(kReader);
  AwaitState(State::kNoCard);
  EXPECT_EQ(Sentence(), "There is no card in the reader");
  desk().desktop().InsertCard(kReader);
  AwaitState(State::kReady);
  EXPECT_EQ(Sentence(), "Card 4711 in reader Kelvrin Reader: 2 certificates");
  EXPECT_EQ([[[window() certificates] table] numberOfRows], 2);
  desk().desktop().RemoveCard(kReader);
  AwaitState(State::kNoCard);
  EXPECT_TRUE([[window() detail] isHidden]);
  desk().desktop().RemoveReader(kReader);
  AwaitState(State::kNoReader);
}

TEST_F(WindowOnDesk, TriesAnRsaKeyAndStaysAliveMeanwhile) {
  InsertCard();
  SelectCertificate("Erika Mustermann RSA");
  [[[window() detail] tryButton] performClick:nil];
  EXPECT_THAT(Outcome(), StartsWith("Trying “Erika Mustermann RSA”: PKCS#1 signature (1 of 3)."));
  EXPECT_FALSE([[[window() detail] tryButton] isEnabled]);
  EXPECT_FALSE([[[window() detail] cancelButton] isHidden]);
  Await([&] { return !model().trial()->running(); });
  EXPECT_EQ(Outcome(), "“Erika Mustermann RSA” works. Done and verified: PKCS#1 signature, PSS "
                       "signature, decryption.");
  EXPECT_TRUE([[[window() detail] tryButton] isEnabled]);
  Picture("tried-en");
}

TEST_F(GermanWindowOnDesk, TriesAnEcKey) {
  InsertCard();
  EXPECT_EQ(Sentence(), "Karte 4711 im Leser Kelvrin Reader: 2 Zertifikate");
  SelectCertificate("Erika Mustermann EC");
  TryAndAwait();
  EXPECT_EQ(Outcome(), "„Erika Mustermann EC“ geht. Ausgeführt und geprüft: ECDSA-Signatur.");
  Picture("tried-de");
}

TEST_F(WindowOnDesk, AWrongPinIsAskedForOnceAndEndsTheTrial) {
  InsertCard();
  SelectCertificate("Erika Mustermann RSA");
  pin_ = "000000";
  TryAndAwait();
  EXPECT_THAT(Outcome(), HasSubstr("most often the PIN was wrong"));
  EXPECT_EQ(asked_, 1);
}

TEST_F(WindowOnDesk, ACardPulledWhileItsKeyIsTriedIsSaidToBe) {
  InsertCard();
  SelectCertificate("Erika Mustermann RSA");
  when_asked_ = [this] { desk().desktop().RemoveCard(kReader); };
  TryAndAwait();
  EXPECT_EQ(model().trial()->verdict(), Verdict::kCardGone);
  AwaitState(State::kNoCard);
}

TEST_F(WindowOnDesk, ACancelledTrialEndsAtOnceWhateverTheCardDoes) {
  InsertCard();
  SelectCertificate("Erika Mustermann RSA");
  std::mutex busy;
  busy.lock();
  when_asked_ = [&busy] { const std::lock_guard wait(busy); };
  [[[window() detail] tryButton] performClick:nil];
  Await([&] { return asked_ == 1; });
  [[[window() detail] cancelButton] performClick:nil];
  EXPECT_THAT(Outcome(), StartsWith("Cancelled."));
  busy.unlock();
  // The next trial waits for the card, and works.
  TryAndAwait();
  EXPECT_EQ(model().trial()->verdict(), Verdict::kWorked);
}

TEST_F(WindowOnDesk, TheSelectionSurvivesTheCardsAbsence) {
  InsertCard();
  SelectCertificate("Erika Mustermann RSA");
  desk().desktop().RemoveCard(kReader);
  AwaitState(State::kNoCard);
  desk().desktop().InsertCard(kReader);
  AwaitState(State::kReady);
  EXPECT_EQ(model().selected()->name, "Erika Mustermann RSA");
}

TEST_F(WindowOnDesk, TheReportHoldsWhatModulecheckSaysAndNoPin) {
  InsertCard();
  TryAndAwait();  // with the PIN
  [[[window() detail] diagnoseButton] performClick:nil];
  EXPECT_FALSE([[[window() report] progress] isHidden]);
  Await([&] { return model().diagnosis()->is_complete(); });
  EXPECT_TRUE([[[window() report] progress] isHidden]);
  const kelvrin::TemporaryFolder folder;
  surroundings_->_path = [NSString stringWithUTF8String:(folder / "report.txt").c_str()];
  [[[window() report] saveButton] performClick:nil];
  const std::string report = host::testing::ReadText(folder / "report.txt");
  EXPECT_EQ(report, Text([[[window() report] text] string]));
  EXPECT_THAT(report, HasSubstr("The log at its end may hold data that was signed"));
  EXPECT_THAT(report, HasSubstr("Card 4711 in reader Kelvrin Reader: 2 certificates"));
  EXPECT_THAT(report, HasSubstr("org.kelvrin.KelvrinToken.extension(1.0.0)"));
  EXPECT_THAT(report, HasSubstr("\"conclusion\": \"works\""));
  EXPECT_THAT(report, HasSubstr("(could not be run: this program is missing)"));
  EXPECT_THAT(report, Not(HasSubstr(kRoom->card().pin())));
}

TEST_F(WindowOnDesk, SavesTheCertificateThatTheCardHas) {
  InsertCard();
  SelectCertificate("Erika Mustermann EC");
  const kelvrin::TemporaryFolder folder;
  surroundings_->_path = [NSString stringWithUTF8String:(folder / "ec.pem").c_str()];
  [[[window() detail] saveButton] performClick:nil];
  kelvrin::app::Certificate expected;
  expected.der = kRoom->card().Read("ec.der");
  EXPECT_EQ(host::testing::ReadText(folder / "ec.pem"), kelvrin::app::Pem(expected));
}

// The classes of ours whose objects come and go with a card.
std::map<std::string, int> CountObjects() {
  std::map<std::string, int> counts;
  for (const char *name :
       {"Token", "TokenSession", "TSAuthOperation", "TKSystemToken", "TKTokenKeychainCertificate",
        "TKTokenKeychainKey", "FunctionCall", "Alarm", "ProcessRunner"}) {
    counts[name] = GSDebugAllocationCount(NSClassFromString([NSString stringWithUTF8String:name]));
  }
  return counts;
}

TEST_F(WindowOnDesk, AHundredInsertionsAndRemovalsLeaveNoObjectOfOurs) {
  GSDebugAllocationActive(YES);
  [[window() window] orderOut:nil];  // drawing takes the sanitizers longest
  InsertCard();
  const auto cycle = [this] {
    desk().desktop().RemoveCard(kReader);
    AwaitState(State::kNoCard);
    desk().desktop().InsertCard(kReader);
    AwaitState(State::kReady);
  };
  cycle();
  TryAndAwait();
  desk().desktop().RemoveCard(kReader);
  AwaitState(State::kNoCard);
  desk().desktop().Settle();
  const auto before = CountObjects();
  desk().desktop().InsertCard(kReader);
  AwaitState(State::kReady);
  for (int i = 0; i < 100; ++i) cycle();
  desk().desktop().RemoveCard(kReader);
  AwaitState(State::kNoCard);
  desk().desktop().Settle();
  EXPECT_EQ(CountObjects(), before);
  GSDebugAllocationActive(NO);
}

}  // namespace
}  // namespace window
