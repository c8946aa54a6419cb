// The second window: the report, while it is made and when it is complete.
#pragma once

#import <Cocoa/Cocoa.h>

#include "app/text/texts.h"
#import "app/view/LayoutView.h"
#import "app/view/Surroundings.h"

@interface ReportWindow : NSObject <Arranging, NSWindowDelegate> {
  kelvrin::app::WindowModel *_model;
  const kelvrin::app::Texts *_texts;
  Surroundings *_surroundings;
  NSWindow *_window;
  LayoutView *_content;
  NSTextField *_hint;
  NSProgressIndicator *_progress;
  NSTextView *_text;
  NSScrollView *_scroll;
  NSButton *_copy;
  NSButton *_save;
  NSButton *_close;
  BOOL _isComplete;  // what is shown
}

// Model and texts outlive it; the surroundings are kept.
- (instancetype)initWithModel:(kelvrin::app::WindowModel *)model
                        texts:(const kelvrin::app::Texts *)texts
                 surroundings:(Surroundings *)surroundings;

// Makes the report anew and comes to the front.
- (void)show;

// Shows what the report has become.
- (void)refresh;

- (NSWindow *)window;
- (NSTextField *)hint;
- (NSProgressIndicator *)progress;
- (NSTextView *)text;
- (NSButton *)buttonToCopy;
- (NSButton *)saveButton;
- (NSButton *)closeButton;

@end
