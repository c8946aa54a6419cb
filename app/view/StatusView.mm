#import "app/view/StatusView.h"

#import "app/view/Controls.h"

using kelvrin::app::NextStepOf;
using kelvrin::app::Situation;
using kelvrin::app::State;
using kelvrin::app::Texts;
using kelvrin::app::ToString;

namespace {

constexpr CGFloat kSignWidth = 40;

struct Sign {
  NSString *glyph;
  NSColor *color;
};

// The shape says the same as the colour.
Sign SignOf(State state) {
  switch (state) {
    case State::kReady:
      return {@"✓", [NSColor systemGreenColor]};
    case State::kLooking:
      return {@"…", [NSColor secondaryLabelColor]};
    case State::kNoReader:
    case State::kNoCard:
      return {@"○", [NSColor secondaryLabelColor]};
    case State::kNoExtension:
    case State::kNotInApplications:
    case State::kSeveralCopies:
    case State::kNotRegistered:
    case State::kSwitchedOff:
    case State::kNoCertificates:
    case State::kNothingUsable:
    case State::kReadersHidden:
    case State::kMuteCard:
    case State::kNoToken:
      return {@"!", [NSColor systemOrangeColor]};
  }
}

}  // namespace

@implementation StatusView

- (instancetype)initWithTexts:(const Texts *)texts target:(id)target action:(SEL)action {
  self = [super initWithFrame:NSMakeRect(0, 0, 0, 0)];
  if (self != nil) {
    _texts = texts;
    _sign = [NameLabel() retain];
    [_sign setFont:[NSFont boldSystemFontOfSize:26]];
    [_sign setAlignment:NSTextAlignmentCenter];
    _sentence = [SelectableText([NSFont boldSystemFontOfSize:16]) retain];
    _explanation = [SelectableText([NSFont systemFontOfSize:0]) retain];
    _button = [PushButton("", target, action) retain];
    [_button setKeyEquivalent:@"\r"];
    for (NSView *view in @[ _sign, _sentence, _explanation, _button ]) [self addSubview:view];
  }
  return self;
}

- (BOOL)isFlipped {
  return YES;
}

- (void)showSituation:(const Situation &)situation news:(const std::string &)news {
  const Sign sign = SignOf(situation.state);
  [_sign setStringValue:sign.glyph];
  [_sign setTextColor:sign.color];
  SetName(_sign, _texts->Sign(situation.state));
  SetText(_sentence, _texts->Sentence(situation));
  std::string explanation = _texts->Explanation(situation);
  if (!news.empty()) explanation = news + "\n" + explanation;
  SetText(_explanation, explanation);
  [_explanation setHidden:explanation.empty()];
  const std::string step = _texts->Button(NextStepOf(situation.state));
  [_button setTitle:ToString(step)];
  [_button setHidden:step.empty()];
}

- (CGFloat)arrangeInWidth:(CGFloat)width {
  const CGFloat left = kMargin + kSignWidth + kGap;
  const CGFloat text_width = width - left - kMargin;
  const CGFloat sign_height = HeightOf(_sign, kSignWidth);
  const CGFloat sentence_height = HeightOf(_sentence, text_width);
  // The sign's middle is that of the sentence's first line, which tells the height of a line.
  const CGFloat line = SizeOf(_sentence).height;
  [_sign setFrame:NSMakeRect(kMargin, kMargin + (line - sign_height) / 2, kSignWidth, sign_height)];
  [_sentence setFrame:NSMakeRect(left, kMargin, text_width, sentence_height)];
  CGFloat y = kMargin + sentence_height;
  if (![_explanation isHidden]) {
    const CGFloat height = HeightOf(_explanation, text_width);
    [_explanation setFrame:NSMakeRect(left, y + kGap, text_width, height)];
    y += kGap + height;
  }
  if (![_button isHidden]) {
    PlaceButton(_button, left, y + 2 * kGap);
    y += 2 * kGap + kButtonHeight;
  }
  return y + 2 * kGap;
}

- (NSTextField *)sign {
  return _sign;
}

- (NSTextField *)sentence {
  return _sentence;
}

- (NSTextField *)explanation {
  return _explanation;
}

- (NSButton *)button {
  return _button;
}

- (void)dealloc {
  [_sign release];
  [_sentence release];
  [_explanation release];
  [_button setTarget:nil];
  [_button release];
  [super dealloc];
}

@end
