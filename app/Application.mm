#import "app/Application.h"

#include <iostream>

#import "app/strings.h"
#import "app/view/MainMenu.h"

using kelvrin::app::Texts;
using kelvrin::app::WindowModel;

@implementation Application

- (instancetype)initWithSystem:(kelvrin::app::System *)system
                         texts:(const Texts *)texts
                  surroundings:(Surroundings *)surroundings {
  self = [super init];
  if (self == nil) return nil;
  _texts = texts;
  _model = std::make_unique<WindowModel>(system, [self] { [_window refresh]; });
  _window = [[MainWindow alloc] initWithModel:_model.get() texts:_texts surroundings:surroundings];
  return self;
}

- (MainWindow *)window {
  return _window;
}

- (const WindowModel *)model {
  return _model.get();
}

- (void)applicationDidFinishLaunching:(NSNotification *)notification {
  (void)notification;
  [_window show];
  [[NSApplication sharedApplication] activateIgnoringOtherApps:YES];
}

// In the meantime the person may have registered the extension, or switched it off.
- (void)applicationDidBecomeActive:(NSNotification *)notification {
  (void)notification;
  _model->AskForRegistration();
}

// Its window may have been closed while the report's is open.
- (BOOL)applicationShouldHandleReopen:(NSApplication *)application
                    hasVisibleWindows:(BOOL)hasVisibleWindows {
  (void)application;
  (void)hasVisibleWindows;
  [_window show];
  return NO;
}

- (BOOL)applicationShouldTerminateAfterLastWindowClosed:(NSApplication *)application {
  (void)application;
  return YES;
}

// The process ends without letting go of anything; programs of the report's would go on.
- (void)applicationWillTerminate:(NSNotification *)notification {
  (void)notification;
  _model->CancelDiagnosis();
}

- (BOOL)applicationSupportsSecureRestorableState:(NSApplication *)application {
  (void)application;
  return YES;
}

- (void)dealloc {
  [_window release];
  _window = nil;  // the model's end may still want to tell it
  _model.reset();
  [super dealloc];
}

@end

namespace kelvrin::app {
namespace {

// Lets the main run loop bring answers until a condition holds.
void AwaitOnRunLoop(const std::function<bool()> &condition) {
  while (!condition()) {
    @autoreleasepool {
      [[NSRunLoop currentRunLoop] runMode:NSDefaultRunLoopMode
                               beforeDate:[NSDate dateWithTimeIntervalSinceNow:0.1]];
    }
  }
}

int ShowWindow(NSBundle *bundle, System *system, const Texts &texts) {
  NSApplication *shared = [NSApplication sharedApplication];
  Surroundings *surroundings =
      [[[Surroundings alloc] initWithGuide:[bundle pathForResource:@"macos"
                                                            ofType:@"md"]] autorelease];
  Application *application = [[Application alloc] initWithSystem:system
                                                           texts:&texts
                                                    surroundings:surroundings];
  [shared setMainMenu:MakeMainMenu(texts)];
  [shared setDelegate:(id)application];
  [shared run];
  [shared setDelegate:nil];
  [application release];
  return 0;
}

}  // namespace

Texts TextsOf(NSBundle *bundle) {
  return Texts([bundle](const char *key) {
    @autoreleasepool {
      return ToText([bundle localizedStringForKey:ToString(key) value:nil table:nil]);
    }
  });
}

int RunApplication(NSBundle *application, System *system, int argc, const char *const *argv) {
  int status = 0;
  const std::optional<Options> options = Parse(argc, argv, &status);
  if (!options) return status;
  const Texts texts = TextsOf(application);
  if (options->action == Options::Action::kWindow) return ShowWindow(application, system, texts);
  return RunCommand(*options, system, texts, AwaitOnRunLoop, std::cout, std::cerr);
}

}  // namespace kelvrin::app
