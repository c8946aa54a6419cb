// The window over a scripted system, in a language of the test's choice.
#pragma once

#import <Cocoa/Cocoa.h>

#include <string>
#include <vector>

#include "app/model/testing/scripted_system.h"
#include "app/text/texts.h"
#import "app/view/MainWindow.h"

// Notes what would have left the windows.
@interface NotedSurroundings : Surroundings {
 @public
  std::vector<std::string> *_notes;
  const std::string *_path;     // where to save; empty: nowhere
  const std::string *_problem;  // of writing; empty: none
}
@end

namespace kelvrin::app {

class ShownWindow {
 public:
  // The language: "en" or "de".
  explicit ShownWindow(const std::string &language);
  ~ShownWindow();
  ShownWindow(const ShownWindow &) = delete;
  ShownWindow &operator=(const ShownWindow &) = delete;

  ScriptedSystem system;
  Texts texts;
  std::vector<std::string> notes;  // "copied TEXT", "wrote PATH: TEXT", "showed PATH" ...
  std::string path;                // where the user saves; empty: nowhere
  std::string problem;             // that writing then has
  WindowModel model;
  MainWindow *window;

 private:
  NotedSurroundings *surroundings_;
};

// A key goes down, as the user's, where a window has the focus.
void PressKey(NSWindow *window, NSString *characters, NSUInteger modifiers = 0);

// A key goes down together with Command; returns whether a menu had an item for it.
bool PressCommand(NSMenu *menu, NSString *characters);

// Every view in a view that is not hidden.
std::vector<NSView *> SeenViews(NSView *view);

// What one can read in a view: the texts of its fields and buttons.
std::vector<std::string> SeenTexts(NSView *view);

inline std::string TextOf(NSString *text) { return text == nil ? "nil" : [text UTF8String]; }

}  // namespace kelvrin::app
