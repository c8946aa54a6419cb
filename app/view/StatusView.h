// The top of the window: a sign, a sentence, what to do about it, and a button that does it.
#pragma once

#import <Cocoa/Cocoa.h>

#include "app/text/texts.h"

@interface StatusView : NSView {
  const kelvrin::app::Texts *_texts;
  NSTextField *_sign;
  NSTextField *_sentence;
  NSTextField *_explanation;
  NSButton *_button;
}

// The texts outlive it; the target is not kept, and gets the action when the button is pressed.
- (instancetype)initWithTexts:(const kelvrin::app::Texts *)texts
                       target:(id)target
                       action:(SEL)action;

// `news` stands before the explanation; may be empty.
- (void)showSituation:(const kelvrin::app::Situation &)situation news:(const std::string &)news;

// Places what is shown, for a width in points; returns the height that it needs.
- (CGFloat)arrangeInWidth:(CGFloat)width;

- (NSTextField *)sign;
- (NSTextField *)sentence;
- (NSTextField *)explanation;
- (NSButton *)button;

@end
