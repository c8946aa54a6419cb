#import "app/view/ReportWindow.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#import "app/view/testing/scenes.h"

namespace kelvrin::app {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class ReportWindowTest : public testing::Test {
 protected:
  ReportWindowTest() {
    shown_.system.AnswerRegistered();
    InsertCard(&shown_);
    [[[shown_.window detail] diagnoseButton] performClick:nil];
  }
  ReportWindow *report() const { return [shown_.window report]; }
  std::string Text() const { return TextOf([[report() text] string]); }
  // Every program ends.
  void Complete() {
    while (!shown_.model.diagnosis()->is_complete()) {
      shown_.system.Answer("", ProcessResult{.output = "so it said\n"});
    }
  }

  ShownWindow shown_{"en"};
};

TEST_F(ReportWindowTest, GrowsWhileItIsMade) {
  EXPECT_TRUE([[report() window] isVisible]);
  EXPECT_THAT(Text(), HasSubstr("Card 4711"));
  EXPECT_EQ([[report() progress] doubleValue], 0);
  EXPECT_FALSE([[report() progress] isHidden]);
  EXPECT_FALSE([[report() saveButton] isEnabled]);
  shown_.system.Answer("codesign", {.output = "Identifier=org.kelvrin\n"});
  EXPECT_EQ([[report() progress] doubleValue], 1);
  EXPECT_EQ([[report() progress] maxValue], shown_.model.diagnosis()->count());
  EXPECT_THAT(Text(), HasSubstr("Identifier=org.kelvrin"));
  Complete();
  EXPECT_TRUE([[report() progress] isHidden]);
  EXPECT_EQ(Text(), shown_.texts.Report(shown_.model, *shown_.model.diagnosis()));
}

TEST_F(ReportWindowTest, WarnsOfSignedDataInTheLog) {
  EXPECT_THAT(TextOf([[report() hint] stringValue]), HasSubstr("may hold data that was signed"));
}

TEST_F(ReportWindowTest, StaysAsItWasWhenItWasComplete) {
  Complete();
  const std::string complete = Text();
  shown_.system.Pull("4711");
  EXPECT_EQ(Text(), complete);
}

TEST_F(ReportWindowTest, IsCopied) {
  Complete();
  [[report() buttonToCopy] performClick:nil];
  EXPECT_THAT(shown_.notes, ElementsAre("copied " + Text()));
}

TEST_F(ReportWindowTest, IsSavedWhereTheUserSays) {
  Complete();
  [[report() saveButton] performClick:nil];
  EXPECT_THAT(shown_.notes, ElementsAre("offered Kelvrin Token report.txt"));
  shown_.path = "/tmp/report.txt";
  [[report() saveButton] performClick:nil];
  EXPECT_EQ(shown_.notes.back(), "wrote /tmp/report.txt: " + Text());
  shown_.problem = "The disk is full.";
  [[report() saveButton] performClick:nil];
  EXPECT_EQ(shown_.notes.back(), "The file could not be saved: The disk is full.");
}

TEST_F(ReportWindowTest, ClosingItEndsThePrograms) {
  EXPECT_EQ(shown_.system.running().size(), 1U);
  [[report() closeButton] performClick:nil];
  EXPECT_FALSE([[report() window] isVisible]);
  EXPECT_EQ(shown_.model.diagnosis(), nullptr);
  EXPECT_TRUE(shown_.system.running().empty());
}

TEST_F(ReportWindowTest, EscapeClosesIt) {
  PressKey([report() window], @"\033");
  EXPECT_FALSE([[report() window] isVisible]);
}

TEST_F(ReportWindowTest, MenuBarLeadsToTheGuideFromHereToo) {
  EXPECT_TRUE([[[report() window] delegate] respondsToSelector:@selector(openGuide:)]);
  [[[report() window] delegate] performSelector:@selector(openGuide:) withObject:nil];
  EXPECT_THAT(shown_.notes, ElementsAre("opened the guide"));
}

TEST_F(ReportWindowTest, SelectionSurvivesAnotherSection) {
  [[report() text] setSelectedRange:NSMakeRange(3, 7)];
  shown_.system.Answer("codesign", {.output = "more\n"});
  EXPECT_TRUE(NSEqualRanges([[report() text] selectedRange], NSMakeRange(3, 7)));
}

}  // namespace
}  // namespace kelvrin::app
