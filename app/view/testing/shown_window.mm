#import "app/view/testing/shown_window.h"

#include <map>
#include <memory>

@implementation NotedSurroundings

- (void)copyText:(NSString *)text {
  _notes->push_back(std::string("copied ") + [text UTF8String]);
}

- (NSString *)pathToSave:(NSString *)name {
  _notes->push_back(std::string("offered ") + [name UTF8String]);
  return _path->empty() ? nil : [NSString stringWithUTF8String:_path->c_str()];
}

- (NSString *)writeText:(NSString *)text toPath:(NSString *)path {
  if (!_problem->empty()) return [NSString stringWithUTF8String:_problem->c_str()];
  _notes->push_back(std::string("wrote ") + [path UTF8String] + ": " + [text UTF8String]);
  return nil;
}

- (void)showFile:(NSString *)path {
  _notes->push_back(std::string("showed ") + [path UTF8String]);
}

- (void)openGuide {
  _notes->push_back("opened the guide");
}

- (void)showProblem:(NSString *)title explanation:(NSString *)explanation {
  _notes->push_back(std::string([title UTF8String]) + ": " + [explanation UTF8String]);
}

@end

namespace kelvrin::app {
namespace {

// Reads the application's texts in a language; asking for one that is not there throws.
Lookup TextsIn(const std::string &language) {
  NSString *file =
      [NSString stringWithFormat:@"%s/%s.lproj/Localizable.strings", KELVRIN_APP, language.c_str()];
  NSDictionary *table =
      [[NSString stringWithContentsOfFile:file encoding:NSUTF8StringEncoding
                                    error:nullptr] propertyListFromStringsFileFormat];
  auto strings = std::make_shared<std::map<std::string, std::string>>();
  for (NSString *key in table) {
    (*strings)[[key UTF8String]] = [[table objectForKey:key] UTF8String];
  }
  return [strings](const char *key) { return strings->at(key); };
}

NSEvent *KeyDown(NSWindow *window, NSString *characters, NSUInteger modifiers) {
  return [NSEvent keyEventWithType:NSKeyDown
                          location:NSMakePoint(0, 0)
                     modifierFlags:modifiers
                         timestamp:0
                      windowNumber:[window windowNumber]
                           context:nil
                        characters:characters
       charactersIgnoringModifiers:characters
                         isARepeat:NO
                           keyCode:0];
}

// The display says that a window has come, and which one has the focus.
void TakeEvents() {
  while (NSEvent *event = [NSApp nextEventMatchingMask:NSAnyEventMask
                                             untilDate:[NSDate dateWithTimeIntervalSinceNow:0.02]
                                                inMode:NSDefaultRunLoopMode
                                               dequeue:YES]) {
    [NSApp sendEvent:event];
  }
}

}  // namespace

ShownWindow::ShownWindow(const std::string &language)
    : texts(TextsIn(language)),
      model(&system, [this] { [window refresh]; }),
      window(nil),
      surroundings_([[NotedSurroundings alloc] init]) {
  surroundings_->_notes = &notes;
  surroundings_->_path = &path;
  surroundings_->_problem = &problem;
  for (NSString *name in @[ @"Main", @"Report" ]) [NSWindow removeFrameUsingName:name];
  window = [[MainWindow alloc] initWithModel:&model texts:&texts surroundings:surroundings_];
  [window show];
  TakeEvents();
}

ShownWindow::~ShownWindow() {
  [window release];
  [surroundings_ release];
}

void PressKey(NSWindow *window, NSString *characters, NSUInteger modifiers) {
  [NSApp sendEvent:KeyDown(window, characters, modifiers)];
}

bool PressCommand(NSMenu *menu, NSString *characters) {
  return [menu performKeyEquivalent:KeyDown([NSApp keyWindow], characters, NSCommandKeyMask)];
}

std::vector<NSView *> SeenViews(NSView *view) {
  if ([view isHidden]) return {};
  std::vector<NSView *> views = {view};
  for (NSView *child in [view subviews]) {
    for (NSView *each : SeenViews(child)) views.push_back(each);
  }
  return views;
}

std::vector<std::string> SeenTexts(NSView *view) {
  std::vector<std::string> texts;
  for (NSView *each : SeenViews(view)) {
    if ([each isKindOfClass:[NSButton class]]) texts.push_back(TextOf([(NSButton *)each title]));
    if ([each isKindOfClass:[NSTextField class]]) {
      texts.push_back(TextOf([(NSTextField *)each stringValue]));
    }
  }
  return texts;
}

}  // namespace kelvrin::app
