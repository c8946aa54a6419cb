#import "app/view/LayoutView.h"

@implementation LayoutView

- (instancetype)initWithSize:(NSSize)size owner:(id<Arranging>)owner {
  self = [super initWithFrame:NSMakeRect(0, 0, size.width, size.height)];
  if (self != nil) {
    _owner = owner;
    _content = size;
  }
  return self;
}

- (BOOL)isFlipped {
  return YES;
}

- (void)forgetOwner {
  _owner = nil;
}

- (void)arrange {
  [_owner arrangeInSize:_content];
  [self setNeedsDisplay:YES];
}

// Both, since neither system promises that one of them goes through the other.
- (void)setFrame:(NSRect)frame {
  [super setFrame:frame];
  _content = frame.size;
  [self arrange];
}

- (void)setFrameSize:(NSSize)size {
  [super setFrameSize:size];
  _content = size;
  [self arrange];
}

@end
