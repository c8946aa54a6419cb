#import "app/view/MainWindow.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#import "app/view/testing/display.h"
#import "app/view/testing/picture.h"
#import "app/view/testing/shown_window.h"

namespace kelvrin::app {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

// Not before a test runs: to list the tests takes no display.
class DisplayForTests : public testing::Environment {
  void SetUp() override { display_ = std::make_unique<Display>(); }
  void TearDown() override { display_.reset(); }
  std::unique_ptr<Display> display_;
};
testing::Environment *const kDisplay = testing::AddGlobalTestEnvironment(new DisplayForTests);

TEST(MainWindowTest, Scratch) {
  ShownWindow shown("en");
  shown.system.AnswerRegistered();
  SavePicture([shown.window window], "build/pictures/no-reader-en.png");
  shown.system.Insert(
      "4711", "Reader X",
      {RsaCertificate("Ann Example"), EcCertificate("e\u0301 שלום"),
       KeylessCertificate("Test CA of quite a long name, which takes more than two lines")});
  for (const auto &t : SeenTexts([[shown.window window] contentView])) printf("| %s\n", t.c_str());
  SavePicture([shown.window window], "build/pictures/ready-en.png");
  [[[shown.window detail] tryButton] performClick:nil];
  SavePicture([shown.window window], "build/pictures/trying-en.png");
  [[shown.window window] setContentSize:NSMakeSize(640, 460)];
  SavePicture([shown.window window], "build/pictures/trying-small-en.png");
  [[[shown.window detail] diagnoseButton] performClick:nil];
  SavePicture([[shown.window report] window], "build/pictures/report-en.png");
}

}  // namespace
}  // namespace kelvrin::app
