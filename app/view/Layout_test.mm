// Whatever is shown, in both languages and at the smallest size: no text is cut off, and nothing
// lies over anything else.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#import "app/view/Controls.h"
#import "app/view/testing/picture.h"
#import "app/view/testing/scenes.h"

// Foundation declares these for its own debug builds; they are there in all.
extern "C" {
BOOL GSDebugAllocationActive(BOOL active);
int GSDebugAllocationCount(Class c);
}

namespace kelvrin::app {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

std::string Describe(NSView *view) {
  std::string text = TextOf(NSStringFromClass([view class]));
  if ([view isKindOfClass:[NSButton class]]) text += " " + TextOf([(NSButton *)view title]);
  if ([view isKindOfClass:[NSTextField class]]) {
    text += " " + TextOf([(NSTextField *)view stringValue]);
  }
  return text + " in " + TextOf(NSStringFromRect([view frame]));
}

// A text or button that needs more room than it has.
bool IsCutOff(NSView *view) {
  if (![view isKindOfClass:[NSControl class]]) return false;
  const NSSize room = [view frame].size;
  const NSSize need =
      [[(NSControl *)view cell] cellSizeForBounds:NSMakeRect(0, 0, room.width, 10000)];
  if ([view isKindOfClass:[NSButton class]]) return need.width > room.width;
  return [view isKindOfClass:[NSTextField class]] && need.height > room.height;
}

// What is wrong with how a view's parts lie.
std::vector<std::string> FaultsOf(NSView *view) {
  std::vector<std::string> faults;
  std::vector<NSView *> before;
  for (NSView *child in [view subviews]) {
    if ([child isHidden] || NSIsEmptyRect([child frame])) continue;
    if (!NSContainsRect([view bounds], [child frame]))
      faults.push_back(Describe(child) + " leaves");
    if (IsCutOff(child)) faults.push_back(Describe(child) + " is cut off");
    for (NSView *other : before) {
      if (!NSIntersectsRect([other frame], [child frame])) continue;
      faults.push_back(Describe(child) + " lies over " + Describe(other));
    }
    before.push_back(child);
    if ([child isKindOfClass:[NSControl class]] || [child isKindOfClass:[NSScrollView class]]) {
      continue;
    }
    for (const std::string &fault : FaultsOf(child)) faults.push_back(fault);
  }
  return faults;
}

// What is wrong in a table: headings and cells, except for names, which are shown once more below.
std::vector<std::string> FaultsOfTable(NSTableView *table) {
  std::vector<std::string> faults;
  for (NSTableColumn *column in [table tableColumns]) {
    if ([[column headerCell] cellSize].width > [column width]) {
      faults.push_back(TextOf([[column headerCell] stringValue]) + " is cut off");
    }
    if (column == [[table tableColumns] objectAtIndex:0]) continue;
    for (NSInteger row = 0; row < [table numberOfRows]; ++row) {
      NSCell *cell = [column dataCell];
      [cell setObjectValue:[[table dataSource] tableView:table
                               objectValueForTableColumn:column
                                                     row:row]];
      const NSRect bounds = NSMakeRect(0, 0, [column width], 10000);
      if ([cell cellSizeForBounds:bounds].height > [table rowHeight]) {
        faults.push_back(TextOf([cell stringValue]) + " is cut off");
      }
    }
  }
  const NSSize seen = [[table enclosingScrollView] contentSize];
  if (seen.height < [table rowHeight]) faults.push_back("no row is seen");
  if (NSMaxX([table frame]) > seen.width + 0.5) faults.push_back("columns leave the table");
  return faults;
}

std::vector<std::string> FaultsOf(ShownWindow *shown) {
  std::vector<std::string> faults = FaultsOf([[shown->window window] contentView]);
  if (shown->model.certificates().empty()) return faults;
  for (const std::string &fault : FaultsOfTable([[shown->window certificates] table])) {
    faults.push_back(fault);
  }
  return faults;
}

std::string Picture(const std::string &name, const std::string &language) {
  return std::string(KELVRIN_PICTURES) + "/" + name + "-" + language + ".png";
}

class LayoutTest : public testing::TestWithParam<std::string> {};

TEST_P(LayoutTest, NothingIsCutOffAtAnySize) {
  for (const Scene &scene : Scenes()) {
    ShownWindow shown(GetParam());
    scene.play(&shown);
    SCOPED_TRACE(scene.name);
    EXPECT_THAT(FaultsOf(&shown), IsEmpty());
    SavePicture([shown.window window], Picture(scene.name, GetParam()));
    [[shown.window window] setContentSize:[[shown.window window] contentMinSize]];
    EXPECT_THAT(FaultsOf(&shown), IsEmpty());
    [[shown.window window] setContentSize:NSMakeSize(1200, 800)];
    EXPECT_THAT(FaultsOf(&shown), IsEmpty());
  }
}

TEST_P(LayoutTest, SmallestWindowIsBigEnoughForTheFullestState) {
  ShownWindow shown(GetParam());
  [[shown.window window] setContentSize:[[shown.window window] contentMinSize]];
  for (const Scene &scene : Scenes()) {
    if (scene.name == "not-in-applications") scene.play(&shown);
  }
  shown.model.Try();
  EXPECT_THAT(FaultsOf(&shown), IsEmpty());
  SavePicture([shown.window window], Picture("smallest", GetParam()));
}

TEST_P(LayoutTest, ReportIsNotCutOff) {
  ShownWindow shown(GetParam());
  InsertCard(&shown);
  [[[shown.window detail] diagnoseButton] performClick:nil];
  shown.system.Answer("codesign", {.output = "Identifier=org.kelvrin.KelvrinToken\n"});
  NSWindow *window = [[shown.window report] window];
  EXPECT_THAT(FaultsOf([window contentView]), IsEmpty());
  SavePicture(window, Picture("report", GetParam()));
  [window setContentSize:[window contentMinSize]];
  EXPECT_THAT(FaultsOf([window contentView]), IsEmpty());
  // Lines wrap, and what is longer scrolls.
  NSTextView *text = [[shown.window report] text];
  EXPECT_EQ([text frame].size.width, [[text enclosingScrollView] contentSize].width);
  EXPECT_GT([text frame].size.height, [[text enclosingScrollView] contentSize].height);
}

TEST_P(LayoutTest, WhatIsCutOffIsFound) {
  ShownWindow shown(GetParam());
  InsertCard(&shown);
  NSTextField *fingerprint = [[[shown.window detail] values] objectAtIndex:1];
  [fingerprint setFrameSize:NSMakeSize(200, [fingerprint frame].size.height)];
  NSButton *button = [[shown.window detail] tryButton];
  [button setFrameSize:NSMakeSize(20, kButtonHeight)];
  const std::vector<std::string> faults = FaultsOf(&shown);
  EXPECT_EQ(faults.size(), 2U);
  for (const std::string &fault : faults) EXPECT_THAT(fault, HasSubstr("is cut off"));
}

INSTANTIATE_TEST_SUITE_P(Languages, LayoutTest, testing::Values("en", "de"));

// Counts what there is of our classes.
size_t Objects() {
  size_t count = 0;
  for (Class each : {[MainWindow class],
                     [ReportWindow class],
                     [StatusView class],
                     [DetailView class],
                     [CertificateTable class],
                     [LayoutView class]}) {
    count += static_cast<size_t>(GSDebugAllocationCount(each));
  }
  return count;
}

TEST(ClosedWindowTest, LeavesNoObjectOfOurs) {
  GSDebugAllocationActive(YES);
  const size_t before = Objects();
  for (int i = 0; i < 3; ++i) {
    @autoreleasepool {
      ShownWindow shown("en");
      InsertCard(&shown);
      [[[shown.window detail] tryButton] performClick:nil];
      [[[shown.window detail] diagnoseButton] performClick:nil];
      EXPECT_EQ(Objects(), before + 7);  // two windows have a content each
      [[[shown.window report] window] close];
      [[shown.window window] close];
    }
    EXPECT_EQ(Objects(), before);
  }
  GSDebugAllocationActive(NO);
}

}  // namespace
}  // namespace kelvrin::app
