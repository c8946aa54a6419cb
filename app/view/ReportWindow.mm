#import "app/view/ReportWindow.h"

#import "app/view/Controls.h"

using kelvrin::app::Diagnosis;
using kelvrin::app::Texts;
using kelvrin::app::ToString;
using kelvrin::app::WindowModel;

namespace {

constexpr NSSize kSize = {640, 520};
constexpr NSSize kSmallest = {480, 320};
constexpr CGFloat kProgressHeight = 16;

}  // namespace

@implementation ReportWindow

- (instancetype)initWithModel:(WindowModel *)model
                        texts:(const Texts *)texts
                 surroundings:(Surroundings *)surroundings {
  self = [super init];
  if (self != nil) {
    _model = model;
    _texts = texts;
    _surroundings = [surroundings retain];
    [self makeControls];
    [self makeWindow];
  }
  return self;
}

// Makes what is in the window.
- (void)makeControls {
  _hint = [SelectableText([NSFont systemFontOfSize:0]) retain];
  [_hint setStringValue:ToString(_texts->Get("REPORT_WARNING"))];
  _progress = [[NSProgressIndicator alloc] initWithFrame:NSMakeRect(0, 0, 0, kProgressHeight)];
  [_progress setStyle:NSProgressIndicatorStyleBar];
  [_progress setIndeterminate:NO];
  SetName(_progress, _texts->Get("REPORT_PROGRESS"));
  _text = [[NSTextView alloc] initWithFrame:NSMakeRect(0, 0, kSize.width, kSize.height)];
  [_text setEditable:NO];
  [_text setRichText:NO];
  [_text setFont:[NSFont userFixedPitchFontOfSize:11]];
  [_text setHorizontallyResizable:NO];
  [_text setVerticallyResizable:YES];
  [_text setMaxSize:NSMakeSize(1e7, 1e7)];
  [[_text textContainer] setWidthTracksTextView:YES];
  SetName(_text, _texts->Get("REPORT_TITLE"));
  _scroll = [Scrolled(_text) retain];
  _copy = [PushButton(_texts->Get("REPORT_COPY"), self, @selector(copyReport:)) retain];
  _save = [PushButton(_texts->Get("REPORT_SAVE"), self, @selector(saveReport:)) retain];
  _close = [PushButton(_texts->Get("REPORT_CLOSE"), self, @selector(closeReport:)) retain];
  [_close setKeyEquivalent:@"\033"];
}

// Makes the window, in which the Tab key goes around.
- (void)makeWindow {
  _window = [[NSWindow alloc]
      initWithContentRect:NSMakeRect(0, 0, kSize.width, kSize.height)
                styleMask:NSWindowStyleMaskTitled | NSWindowStyleMaskClosable |
                          NSWindowStyleMaskMiniaturizable | NSWindowStyleMaskResizable
                  backing:NSBackingStoreBuffered
                    defer:NO];
  [_window setReleasedWhenClosed:NO];
  [_window setTitle:ToString(_texts->Get("REPORT_TITLE"))];
  [_window setContentMinSize:kSmallest];
  [_window setDelegate:self];
  _content = [[LayoutView alloc] initWithSize:kSize owner:self];
  for (NSView *view in @[ _hint, _progress, _scroll, _copy, _save, _close ]) {
    [_content addSubview:view];
  }
  [_window setContentView:_content];
  [_text setNextKeyView:_copy];
  [_copy setNextKeyView:_save];
  [_save setNextKeyView:_close];
  [_close setNextKeyView:_hint];
  [_hint setNextKeyView:_text];
  [_window setInitialFirstResponder:_text];
  [_window center];
  [_window setFrameAutosaveName:@"Report"];
}

- (void)arrangeInSize:(NSSize)size {
  const CGFloat width = size.width - 2 * kMargin;
  const CGFloat hint_height = HeightOf(_hint, width);
  [_hint setFrame:NSMakeRect(kMargin, kMargin, width, hint_height)];
  const CGFloat buttons = size.height - kMargin - kButtonHeight;
  const CGFloat top = kMargin + hint_height + kGap;
  [_scroll setFrame:NSMakeRect(kMargin, top, width, buttons - 2 * kGap - top)];
  // As wide as what is seen of it, and as high or higher.
  const NSSize seen = [_scroll contentSize];
  [_text setMinSize:seen];
  [_text setFrameSize:seen];
  [_text sizeToFit];
  const CGFloat next = PlaceButton(_save, PlaceButton(_copy, kMargin, buttons), buttons);
  const CGFloat close_width = PlaceButton(_close, 0, 0) - kGap;
  PlaceButton(_close, size.width - kMargin - close_width, buttons);
  [_progress
      setFrame:NSMakeRect(next + kGap, buttons + (kButtonHeight - kProgressHeight) / 2,
                          size.width - kMargin - close_width - 3 * kGap - next, kProgressHeight)];
}

- (void)show {
  _isComplete = NO;
  _model->Diagnose();
  [self refresh];
  [_content arrange];
  [_window makeKeyAndOrderFront:nil];
}

- (void)refresh {
  const Diagnosis *diagnosis = _model->diagnosis();
  // What was complete stays as it was, also when the card has gone.
  if (diagnosis == nullptr || _isComplete) return;
  _isComplete = diagnosis->is_complete();
  [_progress setMaxValue:static_cast<double>(diagnosis->count())];
  [_progress setDoubleValue:static_cast<double>(diagnosis->done())];
  [_progress setHidden:_isComplete];
  [_copy setEnabled:_isComplete];
  [_save setEnabled:_isComplete];
  NSString *report = ToString(_texts->Report(*_model, *diagnosis));
  if ([[_text string] isEqualToString:report]) return;
  const NSRange selected = [_text selectedRange];
  [_text setString:report];
  if (NSMaxRange(selected) <= [report length]) [_text setSelectedRange:selected];
}

- (void)copyReport:(id)sender {
  [_surroundings copyText:[_text string]];
}

- (void)saveReport:(id)sender {
  NSString *path = [_surroundings pathToSave:ToString(_texts->Get("REPORT_FILE"))];
  if (path == nil) return;
  NSString *problem = [_surroundings writeText:[_text string] toPath:path];
  if (problem != nil) {
    [_surroundings showProblem:ToString(_texts->Get("NOT_SAVED")) explanation:problem];
  }
}

- (void)closeReport:(id)sender {
  [_window performClose:sender];
}

// The menu's, which looks for somebody in front.
- (void)openGuide:(id)sender {
  [_surroundings openGuide];
}

- (void)windowWillClose:(NSNotification *)notification {
  _model->CancelDiagnosis();
}

- (NSWindow *)window {
  return _window;
}

- (NSTextField *)hint {
  return _hint;
}

- (NSProgressIndicator *)progress {
  return _progress;
}

- (NSTextView *)text {
  return _text;
}

- (NSButton *)buttonToCopy {
  return _copy;
}

- (NSButton *)saveButton {
  return _save;
}

- (NSButton *)closeButton {
  return _close;
}

- (void)dealloc {
  [_content forgetOwner];
  [_window setDelegate:nil];
  [_window close];
  [_window release];
  [_content release];
  [_hint release];
  [_progress release];
  [_text release];
  [_scroll release];
  [_copy release];
  [_save release];
  [_close release];
  [_surroundings release];
  [super dealloc];
}

@end
