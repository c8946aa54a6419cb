// The bottom of the window: all of the selected certificate, what can be done with it, and the
// trial of its key.
#pragma once

#import <Cocoa/Cocoa.h>

#include "app/text/texts.h"

// What its buttons send.
@protocol DetailActions
- (void)tryKey:(id)sender;
- (void)cancelTrial:(id)sender;
- (void)copySSHKey:(id)sender;
- (void)saveCertificate:(id)sender;
- (void)diagnose:(id)sender;
@end

@interface DetailView : NSView {
  const kelvrin::app::Texts *_texts;
  NSTextField *_name;
  NSMutableArray<NSTextField *> *_headings;
  NSMutableArray<NSTextField *> *_values;
  NSTextField *_outcome;
  NSProgressIndicator *_progress;
  NSButton *_cancel;
  NSArray<NSButton *> *_buttons;
}

// The texts outlive it; the target is not kept.
- (instancetype)initWithTexts:(const kelvrin::app::Texts *)texts target:(id<DetailActions>)target;

// Shows the model's selected certificate, of which there is one.
- (void)showModel:(const kelvrin::app::WindowModel &)model;

// Places what is shown, for a width in points; returns the height that it needs.
- (CGFloat)arrangeInWidth:(CGFloat)width;

- (NSTextField *)name;
// Serial number, fingerprint, reader.
- (NSArray<NSTextField *> *)values;
// How the trial goes, or why there is no key; empty when there is nothing to say.
- (NSTextField *)outcome;
- (NSProgressIndicator *)progress;
- (NSButton *)cancelButton;
- (NSButton *)tryButton;
- (NSButton *)sshButton;
- (NSButton *)saveButton;
- (NSButton *)diagnoseButton;

@end
