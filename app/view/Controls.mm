#import "app/view/Controls.h"

using kelvrin::app::ToString;

NSTextField *SelectableText(NSFont *font) {
  NSTextField *text = NameLabel();
  [text setSelectable:YES];
  [text setFont:font];
  [text setTextColor:[NSColor labelColor]];
  return text;
}

NSTextField *NameLabel() {
  NSTextField *text = [[[NSTextField alloc] initWithFrame:NSMakeRect(0, 0, 0, 0)] autorelease];
  [text setEditable:NO];
  [text setSelectable:NO];
  [text setBezeled:NO];
  [text setBordered:NO];
  [text setDrawsBackground:NO];
  [text setFont:[NSFont systemFontOfSize:0]];
  [text setTextColor:[NSColor secondaryLabelColor]];
  [[text cell] setWraps:YES];
  return text;
}

NSButton *PushButton(const std::string &title, id target, SEL action) {
  NSButton *button = [[[NSButton alloc] initWithFrame:NSMakeRect(0, 0, 0, 0)] autorelease];
  [button setTitle:ToString(title)];
  [button setButtonType:NSButtonTypeMomentaryPushIn];
  [button setBezelStyle:NSBezelStyleRounded];
  [button setFont:[NSFont systemFontOfSize:0]];
  [button setTarget:target];
  [button setAction:action];
  return button;
}

NSScrollView *Scrolled(NSView *view) {
  NSScrollView *scroll = [[[NSScrollView alloc] initWithFrame:NSMakeRect(0, 0, 0, 0)] autorelease];
  [scroll setHasVerticalScroller:YES];
  [scroll setBorderType:NSBezelBorder];
  [scroll setDocumentView:view];
  return scroll;
}

void SetText(NSTextField *field, const std::string &text) {
  NSString *string = ToString(text);
  if (![[field stringValue] isEqualToString:string]) [field setStringValue:string];
}

void SetName(NSView *view, const std::string &name) {
  [view setToolTip:ToString(name)];
  if ([view respondsToSelector:@selector(setAccessibilityLabel:)]) {
    [view performSelector:@selector(setAccessibilityLabel:) withObject:ToString(name)];
  }
}

CGFloat HeightOf(NSTextField *text, CGFloat width) {
  return [[text cell] cellSizeForBounds:NSMakeRect(0, 0, width, 10000)].height;
}

NSSize SizeOf(NSControl *control) {
  return [[control cell] cellSizeForBounds:NSMakeRect(0, 0, 10000, 10000)];
}

CGFloat PlaceButton(NSButton *button, CGFloat x, CGFloat y) {
  const CGFloat width = SizeOf(button).width + 2 * kGap;
  [button setFrame:NSMakeRect(x, y, width, kButtonHeight)];
  return x + width + kGap;
}
