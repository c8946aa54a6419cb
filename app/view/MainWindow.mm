#import "app/view/MainWindow.h"

#include <optional>

#include "app/model/export.h"
#import "app/view/Controls.h"

using kelvrin::app::Certificate;
using kelvrin::app::NextStep;
using kelvrin::app::NextStepOf;
using kelvrin::app::Pem;
using kelvrin::app::PemFileName;
using kelvrin::app::SshKey;
using kelvrin::app::Texts;
using kelvrin::app::ToString;
using kelvrin::app::WindowModel;

namespace {

constexpr NSSize kSize = {760, 560};
constexpr NSSize kSmallest = {640, 460};

}  // namespace

@implementation MainWindow

- (instancetype)initWithModel:(WindowModel *)model
                        texts:(const Texts *)texts
                 surroundings:(Surroundings *)surroundings {
  self = [super init];
  if (self != nil) {
    _model = model;
    _texts = texts;
    _surroundings = [surroundings retain];
    _status = [[StatusView alloc] initWithTexts:texts target:self action:@selector(takeNextStep:)];
    _certificates = [[CertificateTable alloc] initWithModel:model texts:texts];
    _detail = [[DetailView alloc] initWithTexts:texts target:self];
    _report = [[ReportWindow alloc] initWithModel:model texts:texts surroundings:surroundings];
    [self makeWindow];
    [self chainKeyViews];
    [self refresh];
  }
  return self;
}

// Makes the window, which comes back where it was.
- (void)makeWindow {
  _window = [[NSWindow alloc]
      initWithContentRect:NSMakeRect(0, 0, kSize.width, kSize.height)
                styleMask:NSWindowStyleMaskTitled | NSWindowStyleMaskClosable |
                          NSWindowStyleMaskMiniaturizable | NSWindowStyleMaskResizable
                  backing:NSBackingStoreBuffered
                    defer:NO];
  [_window setReleasedWhenClosed:NO];
  [_window setTitle:ToString(_texts->Get("MENU_APPLICATION"))];
  [_window setContentMinSize:kSmallest];
  [_window setDelegate:self];
  _content = [[LayoutView alloc] initWithSize:kSize owner:self];
  for (NSView *view in @[ _status, [_certificates view], _detail ]) [_content addSubview:view];
  [_window setContentView:_content];
  [_window center];
  [_window setFrameAutosaveName:@"Main"];
}

// The way of the Tab key: the table, the buttons below, the one at the top, and around.
- (void)chainKeyViews {
  NSArray<NSView *> *views = @[
    [_certificates table], [_detail cancelButton], [_detail tryButton], [_detail sshButton],
    [_detail saveButton], [_detail diagnoseButton], [_status button]
  ];
  NSView *last = [views objectAtIndex:[views count] - 1];
  for (NSView *view in views) {
    [last setNextKeyView:view];
    last = view;
  }
  [_window setInitialFirstResponder:[_certificates table]];
}

- (void)arrangeInSize:(NSSize)size {
  const CGFloat top = [_status arrangeInWidth:size.width];
  [_status setFrame:NSMakeRect(0, 0, size.width, top)];
  if ([_detail isHidden]) return;
  const CGFloat bottom = [_detail arrangeInWidth:size.width];
  [_detail setFrame:NSMakeRect(0, size.height - bottom, size.width, bottom)];
  [_certificates
      placeIn:NSMakeRect(kMargin, top, size.width - 2 * kMargin, size.height - bottom - top)];
}

- (void)show {
  [_window makeKeyAndOrderFront:nil];
}

- (void)refresh {
  const bool has_certificates = _model->selected() != nullptr;
  // How a trial ended is told at the top where there is no certificate any more to tell it with.
  const bool has_news = _model->trial() != nullptr && !has_certificates;
  [_status showSituation:_model->situation()
                    news:has_news ? _texts->TrialSentence(*_model->trial()) : ""];
  [_certificates refresh];
  if (has_certificates) [_detail showModel:*_model];
  [[_certificates view] setHidden:!has_certificates];
  [_detail setHidden:!has_certificates];
  [_content arrange];
  [self keepFocus];
  [_report refresh];
}

// Gives the focus to the table, or without one to the button at the top, when nothing has it.
- (void)keepFocus {
  const NSResponder *focus = [_window firstResponder];
  if (focus != _window && ![(NSView *)focus isHiddenOrHasHiddenAncestor]) return;
  NSView *next = [_detail isHidden] ? [_status button] : [_certificates table];
  [_window makeFirstResponder:[next isHidden] ? nil : next];
}

// Does, or shows, what the sentence at the top asks for.
- (void)takeNextStep:(id)sender {
  switch (NextStepOf(_model->situation().state)) {
    case NextStep::kNone:
      break;
    case NextStep::kShowGuide:
      [_surroundings openGuide];
      break;
    case NextStep::kShowApplication:
      [_surroundings showFile:ToString(_model->system().installation().application)];
      break;
    case NextStep::kShowCopy:
      [_surroundings showFile:ToString(_model->situation().copies.front())];
      break;
    case NextStep::kRegister:
      _model->Register();
      break;
    case NextStep::kSwitchOn:
      _model->SwitchOn();
      break;
    case NextStep::kDiagnose:
      [_report show];
      break;
  }
}

- (void)tryKey:(id)sender {
  _model->Try();
}

- (void)cancelTrial:(id)sender {
  _model->CancelTrial();
}

- (void)copySSHKey:(id)sender {
  [_surroundings copyText:ToString(*SshKey(*_model->selected()))];
}

- (void)saveCertificate:(id)sender {
  // A copy: while the question is open, the card may go.
  const Certificate certificate = *_model->selected();
  NSString *path = [_surroundings pathToSave:ToString(PemFileName(certificate))];
  if (path == nil) return;
  NSString *problem = [_surroundings writeText:ToString(Pem(certificate)) toPath:path];
  if (problem != nil) {
    [_surroundings showProblem:ToString(_texts->Get("NOT_SAVED")) explanation:problem];
  }
}

- (void)diagnose:(id)sender {
  [_report show];
}

- (void)openGuide:(id)sender {
  [_surroundings openGuide];
}

// Reached when no text is selected: copies the selected certificate's line.
- (void)copy:(id)sender {
  [_surroundings copyText:[_certificates selectedLine]];
}

// Whether a menu's item, which is asked about because it has an action, does something now.
- (BOOL)validateMenuItem:(NSMenuItem *)item {
  NSString *action = NSStringFromSelector((SEL _Nonnull)[item action]);
  const bool has_certificate = _model->selected() != nullptr;
  if ([action isEqualToString:@"tryKey:"]) {
    return has_certificate && [[_detail tryButton] isEnabled];
  }
  if ([action isEqualToString:@"copySSHKey:"]) {
    return has_certificate && [[_detail sshButton] isEnabled];
  }
  if ([action isEqualToString:@"saveCertificate:"] || [action isEqualToString:@"copy:"]) {
    return has_certificate;
  }
  return YES;
}

- (NSWindow *)window {
  return _window;
}

- (StatusView *)status {
  return _status;
}

- (CertificateTable *)certificates {
  return _certificates;
}

- (DetailView *)detail {
  return _detail;
}

- (ReportWindow *)report {
  return _report;
}

- (void)dealloc {
  [_content forgetOwner];
  [_window setDelegate:nil];
  [_window close];
  [_window release];
  [_content release];
  [_status release];
  [_certificates release];
  [_detail release];
  [_report release];
  [_surroundings release];
  [super dealloc];
}

@end
