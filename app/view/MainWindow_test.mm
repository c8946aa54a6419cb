#import "app/view/MainWindow.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <set>

#include "app/model/export.h"
#import "app/view/testing/display.h"
#import "app/view/testing/scenes.h"

namespace kelvrin::app {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

// Not before a test runs: to list the tests takes no display.
class DisplayForTests : public testing::Environment {
  void SetUp() override { display_ = std::make_unique<Display>(); }
  void TearDown() override { display_.reset(); }
  std::unique_ptr<Display> display_;
};
testing::Environment *const kDisplay = testing::AddGlobalTestEnvironment(new DisplayForTests);

class MainWindowTest : public testing::Test {
 protected:
  // What has the focus: of a text that is being selected, the text and not its editor.
  NSResponder *Focus() const {
    NSResponder *focus = [window() firstResponder];
    if ([focus isKindOfClass:[NSTextView class]] && [(NSTextView *)focus isFieldEditor]) {
      return (NSResponder *)[(NSTextView *)focus delegate];
    }
    return focus;
  }
  NSWindow *window() const { return [shown_.window window]; }
  DetailView *detail() const { return [shown_.window detail]; }
  StatusView *status() const { return [shown_.window status]; }
  NSTableView *table() const { return [[shown_.window certificates] table]; }
  std::vector<std::string> Seen() const { return SeenTexts([window() contentView]); }

  ShownWindow shown_{"en"};
};

TEST_F(MainWindowTest, EachStateHasItsSentenceExplanationSignAndButton) {
  for (const std::string language : {"en", "de"}) {
    for (const Scene &scene : Scenes()) {
      ShownWindow shown(language);
      scene.play(&shown);
      SCOPED_TRACE(scene.name + " " + language);
      const Situation &situation = shown.model.situation();
      ASSERT_EQ(situation.state, scene.state);
      const std::vector<std::string> seen = SeenTexts([shown.window status]);
      EXPECT_THAT(seen, Contains(shown.texts.Sentence(situation)));
      EXPECT_THAT(TextOf([[[shown.window status] explanation] stringValue]),
                  EndsWith(shown.texts.Explanation(situation)));
      const std::string button = shown.texts.Button(NextStepOf(scene.state));
      EXPECT_EQ([[[shown.window status] button] isHidden], button.empty());
      EXPECT_EQ(TextOf([[[shown.window status] button] title]), button);
      EXPECT_EQ(TextOf([[[shown.window status] sign] toolTip]), shown.texts.Sign(scene.state));
      EXPECT_EQ([[shown.window detail] isHidden], shown.model.certificates().empty());
    }
  }
}

TEST_F(MainWindowTest, ScenesLeaveNoStateOut) {
  std::set<State> states;
  for (const Scene &scene : Scenes()) states.insert(scene.state);
  EXPECT_EQ(states.size(), static_cast<size_t>(State::kNoToken) + 1);
}

TEST_F(MainWindowTest, SignsDifferInShape) {
  std::map<std::string, std::set<std::string>> glyphs;
  for (const Scene &scene : Scenes()) {
    ShownWindow shown("en");
    scene.play(&shown);
    glyphs[shown.texts.Sign(scene.state)].insert(
        TextOf([[[shown.window status] sign] stringValue]));
  }
  std::set<std::string> all;
  for (const auto &[meaning, shapes] : glyphs) {
    EXPECT_EQ(shapes.size(), 1U) << meaning;
    all.insert(shapes.begin(), shapes.end());
  }
  EXPECT_EQ(all.size(), glyphs.size());
}

TEST_F(MainWindowTest, ButtonAtTheTopDoesTheNextStep) {
  shown_.system.AnswerRegistered();
  [[status() button] performClick:nil];
  EXPECT_THAT(shown_.notes, ElementsAre("opened the guide"));

  shown_.system.here.application = "/Users/ann/Downloads/KelvrinToken.app";
  shown_.system.Change();
  [[status() button] performClick:nil];
  EXPECT_EQ(shown_.notes.back(), "showed /Users/ann/Downloads/KelvrinToken.app");
}

TEST_F(MainWindowTest, ButtonAtTheTopShowsTheOtherCopy) {
  for (const Scene &scene : Scenes()) {
    if (scene.state == State::kSeveralCopies) scene.play(&shown_);
  }
  [[status() button] performClick:nil];
  EXPECT_THAT(shown_.notes, ElementsAre("showed " + shown_.model.situation().copies[0]));
}

TEST_F(MainWindowTest, ButtonAtTheTopRegistersAndSwitchesOn) {
  shown_.system.Answer("pluginkit", {.output = "  (no matches)\n"});
  [[status() button] performClick:nil];
  EXPECT_THAT(shown_.system.running(), ElementsAre(HasSubstr("pluginkit -a /Applications/")));
  shown_.system.Answer("pluginkit", ProcessResult{});
  shown_.system.Answer(
      "pluginkit", {.output = "-    " + shown_.system.here.extension_id + "(1.0.0)\t0A1B\tdate\t" +
                              shown_.system.here.extension + "\n"});
  [[status() button] performClick:nil];
  EXPECT_THAT(shown_.system.running(), ElementsAre(HasSubstr("pluginkit -e use -i")));
}

TEST_F(MainWindowTest, ButtonAtTheTopMakesTheReport) {
  shown_.system.presence.readers = {{kReader, SlotState::kCard}};
  shown_.system.Change();
  shown_.system.AnswerRegistered();
  shown_.system.LetTimePass();
  [[status() button] performClick:nil];
  EXPECT_TRUE([[[shown_.window report] window] isVisible]);
  EXPECT_NE(shown_.model.diagnosis(), nullptr);
}

TEST_F(MainWindowTest, ShowsAllOfTheSelectedCertificate) {
  InsertCard(&shown_);
  const Certificate &certificate = *shown_.model.selected();
  EXPECT_THAT(Seen(), Contains(certificate.name));
  for (const auto &[heading, value] : shown_.texts.Details(certificate, kReader)) {
    EXPECT_THAT(Seen(), Contains(heading));
    EXPECT_THAT(Seen(), Contains(value));
  }
  for (NSTextField *value in [detail() values]) EXPECT_TRUE([value isSelectable]);
}

TEST_F(MainWindowTest, OffersWhatTheKeyCanDo) {
  InsertCard(&shown_);
  EXPECT_TRUE([[detail() tryButton] isEnabled]);
  EXPECT_TRUE([[detail() sshButton] isEnabled]);
  shown_.model.Select(2);
  EXPECT_FALSE([[detail() tryButton] isEnabled]);
  EXPECT_TRUE([[detail() saveButton] isEnabled]);
  EXPECT_THAT(Seen(), Contains(shown_.texts.NoKeyReason(*shown_.model.selected())));

  Certificate wide = EcCertificate("On P-384");
  wide.key_bits = 384;
  wide.public_key.assign(97, 4);
  shown_.system.Insert("4712", "Other", {wide});
  shown_.model.Select(3);
  EXPECT_TRUE([[detail() tryButton] isEnabled]);
  EXPECT_FALSE([[detail() sshButton] isEnabled]);
}

TEST_F(MainWindowTest, TriesTheKeyAndSaysWhatGoesOn) {
  InsertCard(&shown_);
  EXPECT_TRUE([[detail() cancelButton] isHidden]);
  [[detail() tryButton] performClick:nil];
  ASSERT_NE(shown_.model.trial(), nullptr);
  EXPECT_THAT(Seen(), Contains(StartsWith("Trying “Ann Example, signature”")));
  EXPECT_FALSE([[detail() cancelButton] isHidden]);
  EXPECT_FALSE([[detail() progress] isHidden]);
  EXPECT_FALSE([[detail() tryButton] isEnabled]);
  for (int i = 0; i < 3; ++i) shown_.system.Answer(Attempt{});
  EXPECT_THAT(Seen(), Contains(HasSubstr("works. Done and verified")));
  EXPECT_TRUE([[detail() cancelButton] isHidden]);
  EXPECT_TRUE([[detail() tryButton] isEnabled]);
}

TEST_F(MainWindowTest, CancelEndsTheTrial) {
  InsertCard(&shown_);
  [[detail() tryButton] performClick:nil];
  [[detail() cancelButton] performClick:nil];
  EXPECT_EQ(shown_.model.trial()->verdict(), Verdict::kCancelled);
}

TEST_F(MainWindowTest, EscapeEndsTheTrial) {
  InsertCard(&shown_);
  [[detail() tryButton] performClick:nil];
  PressKey(window(), @"\033");
  EXPECT_EQ(shown_.model.trial()->verdict(), Verdict::kCancelled);
}

TEST_F(MainWindowTest, CardThatIsPulledWhileItIsTriedLeavesTheWindow) {
  InsertCard(&shown_);
  [[detail() tryButton] performClick:nil];
  shown_.system.AnswerRegistered();
  shown_.system.Pull("4711");
  EXPECT_TRUE([detail() isHidden]);
  EXPECT_TRUE([[[shown_.window certificates] view] isHidden]);
  EXPECT_THAT(Seen(), Contains("There is no card in the reader"));
  EXPECT_THAT(TextOf([[[shown_.window status] explanation] stringValue]),
              StartsWith("The card was taken out while “Ann Example, signature” was being tried."));
}

TEST_F(MainWindowTest, ReturnTakesTheNextStep) {
  shown_.system.AnswerRegistered();
  PressKey(window(), @"\r");
  EXPECT_THAT(shown_.notes, ElementsAre("opened the guide"));
}

TEST_F(MainWindowTest, CopiesTheSshKey) {
  InsertCard(&shown_);
  shown_.model.Select(1);
  [[detail() sshButton] performClick:nil];
  EXPECT_THAT(shown_.notes, ElementsAre("copied " + *SshKey(shown_.model.certificates()[1])));
}

TEST_F(MainWindowTest, SavesTheCertificateWhereTheUserSays) {
  InsertCard(&shown_);
  [[detail() saveButton] performClick:nil];
  EXPECT_EQ(shown_.notes.size(), 1U);
  shown_.path = "/tmp/ann.pem";
  [[detail() saveButton] performClick:nil];
  const Certificate &certificate = *shown_.model.selected();
  EXPECT_THAT(shown_.notes, ElementsAre("offered " + PemFileName(certificate),
                                        "offered " + PemFileName(certificate),
                                        "wrote /tmp/ann.pem: " + Pem(certificate)));
  shown_.problem = "The disk is full.";
  [[detail() saveButton] performClick:nil];
  EXPECT_EQ(shown_.notes.back(), "The file could not be saved: The disk is full.");
}

TEST_F(MainWindowTest, TabGoesThroughAllThatCanBePressedAndAround) {
  InsertCard(&shown_);
  EXPECT_EQ(Focus(), table());
  std::set<NSResponder *> visited;
  for (int i = 0; i < 20; ++i) {
    PressKey(window(), @"\t");
    visited.insert(Focus());
    if (Focus() == table()) break;
  }
  for (NSResponder *each :
       {(NSResponder *)table(), (NSResponder *)[detail() tryButton],
        (NSResponder *)[detail() sshButton], (NSResponder *)[detail() saveButton],
        (NSResponder *)[detail() diagnoseButton], (NSResponder *)[status() button]}) {
    EXPECT_TRUE(visited.contains(each)) << TextOf([each description]);
  }
}

TEST_F(MainWindowTest, SpacePressesTheButtonWithTheFocus) {
  InsertCard(&shown_);
  [window() makeFirstResponder:[detail() tryButton]];
  PressKey(window(), @" ");
  EXPECT_NE(shown_.model.trial(), nullptr);
}

TEST_F(MainWindowTest, FocusStaysThroughRefreshesAndMovesWhereSomethingIsLeft) {
  shown_.system.AnswerRegistered();
  EXPECT_EQ(Focus(), [status() button]);
  InsertCard(&shown_);
  EXPECT_EQ(Focus(), table());
  [window() makeFirstResponder:[detail() saveButton]];
  shown_.system.Change();
  EXPECT_EQ(Focus(), [detail() saveButton]);
  shown_.system.Pull("4711");
  EXPECT_EQ(Focus(), [status() button]);
}

TEST_F(MainWindowTest, EverythingThatCanBePressedHasAName) {
  InsertCard(&shown_);
  for (NSView *view : SeenViews(detail())) {
    if (![view isKindOfClass:[NSButton class]]) continue;
    EXPECT_NE(TextOf([view toolTip]), "nil") << TextOf([(NSButton *)view title]);
  }
  EXPECT_EQ(TextOf([table() toolTip]), "Certificates");
  EXPECT_EQ(TextOf([[detail() progress] toolTip]), "The card is working");
}

TEST_F(MainWindowTest, RefreshWithoutAChangeChangesNothing) {
  InsertCard(&shown_);
  const std::vector<std::string> before = Seen();
  [shown_.window refresh];
  EXPECT_EQ(Seen(), before);
}

}  // namespace
}  // namespace kelvrin::app
