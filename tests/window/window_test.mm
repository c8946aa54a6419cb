// The window, used.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <cerrno>
#include <fstream>
#include <thread>

#include "app/model/export.h"
#import "app/view/testing/picture.h"
#import "platform/linux/ctk/TKSystem.h"
#include "platform/linux/host/testing/text_files.h"
#import "tests/window/window_on_desk.h"

namespace window {
namespace {

using kelvrin::app::Command;
using kelvrin::app::ProcessResult;
using kelvrin::app::SlotState;
using kelvrin::app::State;
using kelvrin::app::TaskPointer;
using kelvrin::app::Verdict;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

void Picture(MainWindow *window, const std::string &name) {
  SavePicture([window window], std::string(KELVRIN_PICTURES) + "/" + name + ".png");
}

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
  ASSERT_EQ(model().certificates().size(), 2U);
  EXPECT_EQ(model().certificates()[0].name, "Erika Mustermann EC");
  EXPECT_EQ(model().certificates()[1].name, "Erika Mustermann RSA");
  EXPECT_EQ([[[window() certificates] table] numberOfRows], 2);
  desk().desktop().RemoveCard(kReader);
  AwaitState(State::kNoCard);
  EXPECT_TRUE([[window() detail] isHidden]);
  desk().desktop().RemoveReader(kReader);
  AwaitState(State::kNoReader);
}

TEST_F(WindowOnDesk, AReaderThatIsPluggedInAgainAtOnceIsFollowed) {
  desk().desktop().AddReader(kReader);
  AwaitState(State::kNoCard);
  // Before this thread hears of any of it.
  desk().desktop().RemoveReader(kReader);
  desk().desktop().AddReader(kReader);
  desk().desktop().Settle();
  desk().desktop().InsertCard(kReader);
  AwaitState(State::kReady);
  EXPECT_EQ(model().presence().readers.front().state, SlotState::kCard);
}

TEST_F(WindowOnDesk, HearsWhatTheReaderFindsInItself) {
  desk().desktop().AddReader(kReader);
  AwaitState(State::kNoCard);
  desk().desktop().Settle();
  const std::pair<TKSmartCardSlotState, SlotState> rows[] = {
      {TKSmartCardSlotStateProbing, SlotState::kProbing},
      {TKSmartCardSlotStateMuteCard, SlotState::kMute},
      {TKSmartCardSlotStateValidCard, SlotState::kCard},
      {TKSmartCardSlotStateEmpty, SlotState::kEmpty},
  };
  NSString *reader = @(kReader);
  for (const auto &[found, told] : rows) {
    // The system never tells it on the main thread.
    std::thread(TKSystemSetReaderState, reader, found).join();
    Await([this, told = told] { return model().presence().readers.at(0).state == told; });
  }
  AwaitState(State::kNoCard);
}

// An application without the entitlement that reader access needs.
class ReadersHidden {
 protected:
  ReadersHidden() { TKSystemAllowReaders(NO); }
  ~ReadersHidden() { TKSystemAllowReaders(YES); }
};
class WindowWithoutReaders : ReadersHidden, public WindowOnDesk {};

TEST_F(WindowWithoutReaders, SaysSoAndFollowsTokensAllTheSame) {
  AwaitState(State::kReadersHidden);
  EXPECT_FALSE(model().presence().shows_readers);
  InsertCard();
  EXPECT_THAT(model().presence().readers, IsEmpty());
  EXPECT_EQ(Sentence(), "Card 4711 in reader Kelvrin Reader: 2 certificates");
  desk().desktop().RemoveCard(kReader);
  AwaitState(State::kReadersHidden);
}

// With a trial that is cancelled while its card waits for a lock.
class CancelledTrialOnDesk : public WindowOnDesk {
 protected:
  void CancelWhileTheCardIs(std::mutex *busy) {
    InsertCard();
    SelectCertificate("Erika Mustermann RSA");
    when_asked_ = [busy] { const std::lock_guard wait(*busy); };
    [[[window() detail] tryButton] performClick:nil];
    Await([this] { return asked_ == 1; });
    [[[window() detail] cancelButton] performClick:nil];
  }
};

TEST_F(CancelledTrialOnDesk, ATrialWaitsForTheOneThatWasCancelled) {
  std::mutex busy;
  busy.lock();
  CancelWhileTheCardIs(&busy);
  SelectCertificate("Erika Mustermann EC");
  [[[window() detail] tryButton] performClick:nil];
  for (int turns = 0; turns < 5; ++turns) {
    [[NSRunLoop currentRunLoop] runMode:NSDefaultRunLoopMode
                             beforeDate:[NSDate dateWithTimeIntervalSinceNow:0.03]];
  }
  EXPECT_EQ(asked_, 1);
  busy.unlock();
  Await([&] { return !model().trial()->running(); });
  EXPECT_EQ(model().trial()->verdict(), Verdict::kWorked);
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
  Picture(window(), "tried-en");
}

TEST_F(GermanWindowOnDesk, TriesAnEcKey) {
  InsertCard();
  EXPECT_EQ(Sentence(), "Karte 4711 im Leser Kelvrin Reader: 2 Zertifikate");
  SelectCertificate("Erika Mustermann EC");
  TryAndAwait();
  EXPECT_EQ(Outcome(), "„Erika Mustermann EC“ geht. Ausgeführt und geprüft: ECDSA-Signatur.");
  Picture(window(), "tried-de");
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
  when_asked_ = [this] {
    desk().desktop().RemoveCard(kReader);
    while ([TKSystemTokens() count] != 0) std::this_thread::yield();  // applications hear at once
  };
  TryAndAwait();
  EXPECT_EQ(model().trial()->verdict(), Verdict::kCardGone);
  AwaitState(State::kNoCard);
}

TEST_F(CancelledTrialOnDesk, EndsAtOnceWhateverTheCardDoes) {
  std::mutex busy;
  busy.lock();
  CancelWhileTheCardIs(&busy);
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
  EXPECT_THAT(report, Not(HasSubstr(TheRoom().card().pin())));
}

TEST_F(WindowOnDesk, QuittingEndsTheReportsPrograms) {
  [[[window() detail] diagnoseButton] performClick:nil];
  ASSERT_NE(model().diagnosis(), nullptr);
  [(id)application_ applicationWillTerminate:nil];
  EXPECT_EQ(model().diagnosis(), nullptr);
}

TEST_F(WindowOnDesk, WhoeverComesBackMayHaveRegisteredTheExtension) {
  Await([this] { return model().registration() != nullptr; });
  const int before = system().pluginkit_runs();
  [(id)application_ applicationDidBecomeActive:nil];
  EXPECT_GT(system().pluginkit_runs(), before);
}

// What a program that runs beside the window comes to.
class ProgramsOnDesk : public WindowOnDesk {
 protected:
  ProcessResult Run(const Command &command) {
    std::optional<ProcessResult> result;
    const auto task = system().Run(command, [&result](const auto &answer) { result = answer; });
    Await([&result] { return result.has_value(); });
    return *result;
  }
  // Starts a program that takes ten minutes; has begun once this returns. No time runs out
  // meanwhile, since this thread does not listen.
  TaskPointer StartLongProgram(int seconds) {
    const std::string file = folder_ / "pid";
    auto task = system().Run({"/bin/sh", {"-c", "echo $$ >\"$0\"; exec sleep 600", file}, seconds},
                             [this](const ProcessResult &result) { end_ = result.end; });
    for (int turns = 0; !(std::ifstream(file) >> pid_) && turns < 2000; ++turns) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return task;
  }
  // A program that has ended is there until its status has been taken.
  void AwaitItsEnd() {
    ASSERT_GT(pid_, 0);
    Await([this] { return kill(pid_, 0) == -1 && errno == ESRCH; });
  }

  const kelvrin::TemporaryFolder folder_;
  pid_t pid_ = 0;
  std::optional<ProcessResult::End> end_;
};

TEST_F(ProgramsOnDesk, ItsOutputErrorsAndStatusAreTaken) {
  const auto result = Run({"/bin/sh", {"-c", "echo $LC_ALL; echo no >&2; exit 3"}, 60});
  EXPECT_EQ(result.end, ProcessResult::End::kExited);
  EXPECT_EQ(result.status, 3);
  EXPECT_EQ(result.output, "C\n");
  EXPECT_EQ(result.errors, "no\n");
}

TEST_F(ProgramsOnDesk, WhatIsNoUtf8IsReadAsLatin1AndNulsAreLeftOut) {
  const auto result =
      Run({"/bin/sh", {"-c", "printf 'M\\303\\274ller\\0!'; printf 'M\\374ller\\0!' >&2"}, 60});
  EXPECT_EQ(result.output, "Müller!");
  EXPECT_EQ(result.errors, "Müller!");
}

TEST_F(ProgramsOnDesk, OneThatTakesTooLongIsEnded) {
  const auto task = StartLongProgram(1);
  AwaitItsEnd();
  EXPECT_EQ(end_, ProcessResult::End::kTimedOut);
}

TEST_F(ProgramsOnDesk, OneThatNobodyWaitsForAnyMoreIsEnded) {
  auto task = StartLongProgram(600);
  task.reset();
  AwaitItsEnd();
  EXPECT_EQ(end_, std::nullopt);
}

TEST_F(ProgramsOnDesk, OneThatIsNotThereIsSaidToBeMissing) {
  EXPECT_EQ(Run({"/usr/bin/no-such-program", {}}).end, ProcessResult::End::kNoProgram);
}

TEST_F(WindowOnDesk, SavesTheCertificateThatTheCardHas) {
  InsertCard();
  SelectCertificate("Erika Mustermann EC");
  const kelvrin::TemporaryFolder folder;
  surroundings_->_path = [NSString stringWithUTF8String:(folder / "ec.pem").c_str()];
  [[[window() detail] saveButton] performClick:nil];
  kelvrin::app::Certificate expected;
  expected.der = TheRoom().card().Read("ec.der");
  EXPECT_EQ(host::testing::ReadText(folder / "ec.pem"), kelvrin::app::Pem(expected));
}

}  // namespace
}  // namespace window
