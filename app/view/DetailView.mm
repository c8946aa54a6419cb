#import "app/view/DetailView.h"

#include <algorithm>

#include "app/model/export.h"
#import "app/view/Controls.h"

using kelvrin::app::Certificate;
using kelvrin::app::Texts;
using kelvrin::app::ToString;
using kelvrin::app::Trial;
using kelvrin::app::WindowModel;

namespace {

// Of the lines that the trial gets from the start, so that the table above does not jump.
constexpr CGFloat kOutcomeHeight = 36;
constexpr CGFloat kProgressSize = 16;
constexpr NSUInteger kLines = 3;  // of Texts::Details

}  // namespace

@implementation DetailView

- (instancetype)initWithTexts:(const Texts *)texts target:(id<DetailActions>)target {
  self = [super initWithFrame:NSMakeRect(0, 0, 0, 0)];
  if (self != nil) {
    _texts = texts;
    _name = [SelectableText([NSFont boldSystemFontOfSize:0]) retain];
    _headings = [[NSMutableArray alloc] init];
    _values = [[NSMutableArray alloc] init];
    _outcome = [SelectableText([NSFont systemFontOfSize:0]) retain];
    _progress =
        [[NSProgressIndicator alloc] initWithFrame:NSMakeRect(0, 0, kProgressSize, kProgressSize)];
    [_progress setStyle:NSProgressIndicatorStyleSpinning];
    [_progress setIndeterminate:YES];
    [_progress setDisplayedWhenStopped:NO];
    SetName(_progress, texts->Get("TRIAL_PROGRESS"));
    [self makeButtons:target];
    for (NSView *view in @[ _name, _progress, _outcome, _cancel ]) [self addSubview:view];
    for (NSView *view in _buttons) [self addSubview:view];
    [self makeDetails];
  }
  return self;
}

// Makes the lines of serial number, fingerprint and reader.
- (void)makeDetails {
  for (NSUInteger i = 0; i < kLines; ++i) {
    NSTextField *heading = NameLabel();
    NSTextField *value = SelectableText([NSFont systemFontOfSize:0]);
    [_headings addObject:heading];
    [_values addObject:value];
    [self addSubview:heading];
    [self addSubview:value];
  }
}

// Makes the buttons, each with a word on what it does; their names are their titles.
- (void)makeButtons:(id<DetailActions>)target {
  _cancel = [PushButton(_texts->Get("BUTTON_CANCEL"), target, @selector(cancelTrial:)) retain];
  [_cancel setKeyEquivalent:@"\033"];
  [_cancel setToolTip:ToString(_texts->Get("TIP_CANCEL"))];
  NSButton *attempt = PushButton(_texts->Get("BUTTON_TRY"), target, @selector(tryKey:));
  [attempt setToolTip:ToString(_texts->Get("TIP_TRY"))];
  NSButton *copy = PushButton(_texts->Get("BUTTON_COPY_SSH"), target, @selector(copySSHKey:));
  [copy setToolTip:ToString(_texts->Get("TIP_COPY_SSH"))];
  NSButton *save = PushButton(_texts->Get("BUTTON_SAVE"), target, @selector(saveCertificate:));
  [save setToolTip:ToString(_texts->Get("TIP_SAVE"))];
  NSButton *diagnose = PushButton(_texts->Get("BUTTON_REPORT"), target, @selector(diagnose:));
  [diagnose setToolTip:ToString(_texts->Get("TIP_DIAGNOSE"))];
  _buttons = [@[ attempt, copy, save, diagnose ] retain];
}

- (BOOL)isFlipped {
  return YES;
}

- (void)showModel:(const WindowModel &)model {
  const Certificate &certificate = *model.selected();
  SetText(_name, certificate.name);
  [self showDetails:_texts->Details(certificate, model.ReaderOf(certificate))];
  [self showTrial:model.trial() of:certificate];
  const bool is_trying = model.trial() != nullptr && model.trial()->running();
  [[self tryButton] setEnabled:certificate.has_key && !is_trying];
  [[self sshButton] setEnabled:SshKey(certificate).has_value()];
}

- (void)showDetails:(const std::vector<std::pair<std::string, std::string>> &)lines {
  for (NSUInteger i = 0; i < kLines; ++i) {
    SetText([_headings objectAtIndex:i], lines[i].first);
    SetText([_values objectAtIndex:i], lines[i].second);
    SetName([_values objectAtIndex:i], lines[i].first);
  }
}

// Shows how the trial goes, or why there can be none.
- (void)showTrial:(const Trial *)trial of:(const Certificate &)certificate {
  if (trial != nullptr) {
    SetText(_outcome, _texts->TrialSentence(*trial));
  } else {
    SetText(_outcome, certificate.has_key ? "" : _texts->NoKeyReason(certificate));
  }
  const bool is_running = trial != nullptr && trial->running();
  [_cancel setHidden:!is_running];
  [_progress setHidden:!is_running];
  if (is_running) {
    [_progress startAnimation:nil];
  } else {
    [_progress stopAnimation:nil];
  }
}

- (CGFloat)arrangeInWidth:(CGFloat)width {
  const CGFloat name_height = HeightOf(_name, width - 2 * kMargin);
  [_name setFrame:NSMakeRect(kMargin, kGap, width - 2 * kMargin, name_height)];
  CGFloat y = [self arrangeDetailsInWidth:width below:kGap + name_height + kGap / 2];
  y = [self arrangeTrialInWidth:width below:y + kGap];
  CGFloat x = kMargin;
  for (NSButton *button in _buttons) {
    if (button != [self diagnoseButton]) x = PlaceButton(button, x, y + kGap);
  }
  const CGFloat diagnose_width = PlaceButton([self diagnoseButton], 0, 0) - kGap;
  PlaceButton([self diagnoseButton], width - kMargin - diagnose_width, y + kGap);
  return y + kGap + kButtonHeight + kMargin;
}

// Places the lines as wide as the longest heading leaves room; returns where they end.
- (CGFloat)arrangeDetailsInWidth:(CGFloat)width below:(CGFloat)y {
  CGFloat heading_width = 0;
  for (NSTextField *heading in _headings) {
    heading_width = std::max(heading_width, SizeOf(heading).width + 4);
  }
  const CGFloat left = kMargin + heading_width + kGap;
  for (NSUInteger i = 0; i < [_values count]; ++i) {
    NSTextField *heading = [_headings objectAtIndex:i];
    NSTextField *value = [_values objectAtIndex:i];
    const CGFloat height = HeightOf(value, width - left - kMargin);
    [heading setFrame:NSMakeRect(kMargin, y, heading_width, SizeOf(heading).height)];
    [value setFrame:NSMakeRect(left, y, width - left - kMargin, height)];
    y += height + 2;
  }
  return y;
}

// Places the trial: what turns, the sentence, and Cancel; returns where it ends.
- (CGFloat)arrangeTrialInWidth:(CGFloat)width below:(CGFloat)y {
  CGFloat left = kMargin;
  CGFloat right = width - kMargin;
  if (![_cancel isHidden]) {
    [_progress setFrame:NSMakeRect(left, y, kProgressSize, kProgressSize)];
    left += kProgressSize + kGap;
    const CGFloat cancel_width = PlaceButton(_cancel, 0, 0) - kGap;
    right -= cancel_width;
    PlaceButton(_cancel, right, y);
    right -= kGap;
  }
  const CGFloat height = std::max(kOutcomeHeight, HeightOf(_outcome, right - left));
  [_outcome setFrame:NSMakeRect(left, y, right - left, height)];
  return y + height;
}

- (NSTextField *)name {
  return _name;
}

- (NSArray<NSTextField *> *)values {
  return _values;
}

- (NSTextField *)outcome {
  return _outcome;
}

- (NSProgressIndicator *)progress {
  return _progress;
}

- (NSButton *)cancelButton {
  return _cancel;
}

- (NSButton *)tryButton {
  return [_buttons objectAtIndex:0];
}

- (NSButton *)sshButton {
  return [_buttons objectAtIndex:1];
}

- (NSButton *)saveButton {
  return [_buttons objectAtIndex:2];
}

- (NSButton *)diagnoseButton {
  return [_buttons objectAtIndex:3];
}

- (void)dealloc {
  [_progress stopAnimation:nil];
  [_progress release];
  [_name release];
  [_headings release];
  [_values release];
  [_outcome release];
  [_cancel release];
  [_buttons release];
  [super dealloc];
}

@end
