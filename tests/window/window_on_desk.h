// The window over the real extension and a card.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#import "app/Application.h"
#import "app/view/testing/display.h"
#include "tests/card/softhsm_card.h"
#include "tests/window/desk.h"
#include "tests/window/desk_system.h"

// Saves where the test says.
@interface DeskSurroundings : Surroundings {
 @public
  NSString *_path;
}
@end

namespace window {

// A display, and a card with the application installed beside it.
class Room : public testing::Environment {
 public:
  void SetUp() override;
  void TearDown() override;
  const kelvrin::SoftHsmCard &card() const { return *card_; }
  const std::filesystem::path &application() const { return application_; }

 private:
  std::unique_ptr<Display> display_;
  std::unique_ptr<kelvrin::SoftHsmCard> card_;
  std::filesystem::path application_;
};

// The process's.
Room &TheRoom();

inline std::string Text(NSString *text) { return text == nil ? "nil" : [text UTF8String]; }

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
      desk_ = std::make_unique<Desk>(TheRoom().application(), [this] {
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
  const kelvrin::app::WindowModel &model() const { return *[application_ model]; }
  std::string Sentence() const { return Text([[[window() status] sentence] stringValue]); }
  std::string Outcome() const { return Text([[[window() detail] outcome] stringValue]); }
  // Lets the window live until a condition holds; fails after minutes that are never needed.
  template <typename Condition>
  void Await(Condition condition) {
    NSDate *limit = [NSDate dateWithTimeIntervalSinceNow:240];
    while (!condition()) {
      ASSERT_GT([limit timeIntervalSinceNow], 0) << Sentence();
      @autoreleasepool {
        [[NSRunLoop currentRunLoop] runMode:NSDefaultRunLoopMode
                                 beforeDate:[NSDate dateWithTimeIntervalSinceNow:0.03]];
      }
    }
  }
  void AwaitState(kelvrin::app::State state) {
    Await([&] { return model().situation().state == state; });
  }
  void InsertCard() {
    desk().desktop().AddReader(kReader);
    desk().desktop().InsertCard(kReader);
    AwaitState(kelvrin::app::State::kReady);
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

  std::string pin_ = TheRoom().card().pin();
  std::function<void()> when_asked_;  // on the thread that uses the key
  std::atomic<int> asked_ = 0;
  DeskSurroundings *surroundings_ = [[DeskSurroundings alloc] initWithGuide:@""];
  std::unique_ptr<Desk> desk_;
  std::unique_ptr<DeskSystem> system_;
  std::optional<kelvrin::app::Texts> texts_;
  Application *application_;
};

}  // namespace window
