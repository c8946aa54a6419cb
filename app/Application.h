// The application: its window over a system, or one of its commands.
#pragma once

#import <Cocoa/Cocoa.h>

#include <memory>

#include "app/commands.h"
#include "app/model/system.h"
#include "app/text/texts.h"
#import "app/view/MainWindow.h"
#import "app/view/Surroundings.h"

// Shows the window from the start of the application to its end.
@interface Application : NSObject {
  const kelvrin::app::Texts *_texts;
  std::unique_ptr<kelvrin::app::WindowModel> _model;
  MainWindow *_window;
}

// System and texts outlive it.
- (instancetype)initWithSystem:(kelvrin::app::System *)system
                         texts:(const kelvrin::app::Texts *)texts
                  surroundings:(Surroundings *)surroundings;
- (MainWindow *)window;
- (const kelvrin::app::WindowModel *)model;

@end

namespace kelvrin::app {

// The sentences of a bundle, which outlives them.
Texts TextsOf(NSBundle *bundle);

// Carries out a command line on a system. Returns the program's exit status.
//   application   the bundle with the sentences and the guide
int RunApplication(NSBundle *application, System *system, int argc, const char *const *argv);

}  // namespace kelvrin::app
