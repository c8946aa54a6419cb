// The few controls that the windows are made of.
#pragma once

#import <Cocoa/Cocoa.h>

#include <string>

#import "app/strings.h"

// A text that wraps and that can be selected, or the name beside one, which cannot. Autoreleased.
NSTextField *SelectableText(NSFont *font);
NSTextField *NameLabel();

// A push button, autoreleased; the target is not kept.
NSButton *PushButton(const std::string &title, id target, SEL action);

// A frame with a scroller around a view, autoreleased.
NSScrollView *Scrolled(NSView *view);

// Changes a text only where it is another one, so that what is selected in it stays selected.
void SetText(NSTextField *field, const std::string &text);

// Says what a view is to those who point at it and to those who do not see it.
void SetName(NSView *view, const std::string &name);

// The height in points that a text needs at a width.
CGFloat HeightOf(NSTextField *text, CGFloat width);

// The size in points that a control needs on one line.
NSSize SizeOf(NSControl *control);

// Puts a button where it begins, as wide as its title needs; returns where the next one begins.
CGFloat PlaceButton(NSButton *button, CGFloat x, CGFloat y);

// Points: around everything, between things, of a button.
inline constexpr CGFloat kMargin = 20;
inline constexpr CGFloat kGap = 8;
inline constexpr CGFloat kButtonHeight = 28;
