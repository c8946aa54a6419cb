#import "tests/window/window_on_desk.h"

extern "C" void __lsan_do_leak_check() __attribute__((weak));  // NOLINT: the sanitizer's own name

@implementation DeskSurroundings
- (NSString *)pathToSave:(NSString *)name {
  return _path;
}
@end

namespace window {

void Room::SetUp() {
  display_ = std::make_unique<Display>();
  // A PIN that stands in no certificate and no path.
  card_ = std::make_unique<kelvrin::SoftHsmCard>(kelvrin::CardOptions{.pin = "73920481"});
  application_ = Install(card_->directory());
}

void Room::TearDown() {
  // As long as the extension's file is there, what it keeps on purpose is known by names.
  if (__lsan_do_leak_check != nullptr) __lsan_do_leak_check();
  card_.reset();
  display_.reset();
}

Room &TheRoom() {
  static Room *const room = [] {
    auto *made = new Room;
    testing::AddGlobalTestEnvironment(made);
    return made;
  }();
  return *room;
}

namespace {
const Room &kMadeBeforeMain = TheRoom();
}  // namespace

}  // namespace window
