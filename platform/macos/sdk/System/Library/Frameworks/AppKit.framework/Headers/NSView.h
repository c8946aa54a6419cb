// Rectangles that draw themselves.
#pragma once

#import <AppKit/NSResponder.h>

#pragma clang assume_nonnull begin

typedef NS_ENUM(NSUInteger, NSBorderType) {
  NSNoBorder = 0,
  NSLineBorder = 1,
  NSBezelBorder = 2,
  NSGrooveBorder = 3,
};

@interface NSView : NSResponder
- (instancetype)initWithFrame:(NSRect)frame;
- (void)addSubview:(NSView *)view;
@property (getter=isHidden) BOOL hidden;
@property (readonly, getter=isHiddenOrHasHiddenAncestor) BOOL hiddenOrHasHiddenAncestor;
- (void)setFrameSize:(NSSize)size;
@property NSRect frame;
@property (readonly, getter=isFlipped) BOOL flipped;
@property BOOL needsDisplay;
@property (nullable, copy) NSString *toolTip;
@property (nullable, assign) NSView *nextKeyView;
@end

@interface NSScrollView : NSView
@property (readonly) NSSize contentSize;
@property (nullable, strong) __kindof NSView *documentView;
@property NSBorderType borderType;
@property BOOL hasVerticalScroller;
@end

typedef NS_ENUM(NSUInteger, NSProgressIndicatorStyle) {
  NSProgressIndicatorStyleBar = 0,
  NSProgressIndicatorStyleSpinning = 1,
};

@interface NSProgressIndicator : NSView
@property NSProgressIndicatorStyle style;
@property (getter=isIndeterminate) BOOL indeterminate;
@property (getter=isDisplayedWhenStopped) BOOL displayedWhenStopped;
@property double doubleValue;
@property double maxValue;
- (void)startAnimation:(nullable id)sender;
- (void)stopAnimation:(nullable id)sender;
@end

#pragma clang assume_nonnull end
