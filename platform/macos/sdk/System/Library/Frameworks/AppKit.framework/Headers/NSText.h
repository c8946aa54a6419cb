// Texts that scroll.
#pragma once

#import <AppKit/NSColor.h>
#import <AppKit/NSView.h>

#pragma clang assume_nonnull begin

// Two of the values are not the same on both kinds of Mac.
typedef NS_ENUM(NSInteger, NSTextAlignment) {
  NSTextAlignmentLeft = 0,
#if __x86_64__
  NSTextAlignmentRight = 1,
  NSTextAlignmentCenter = 2,
#else
  NSTextAlignmentCenter = 1,
  NSTextAlignmentRight = 2,
#endif
  NSTextAlignmentJustified = 3,
  NSTextAlignmentNatural = 4,
};

@interface NSTextContainer : NSObject
@property BOOL widthTracksTextView;
@end

@interface NSText : NSView
@property (copy) NSString *string;
@property (getter=isEditable) BOOL editable;
@property (getter=isRichText) BOOL richText;
@property (nullable, strong) NSFont *font;
@property (getter=isHorizontallyResizable) BOOL horizontallyResizable;
@property (getter=isVerticallyResizable) BOOL verticallyResizable;
@property NSSize minSize;
@property NSSize maxSize;
@property NSRange selectedRange;
- (void)sizeToFit;
@end

@interface NSTextView : NSText
@property (nullable, assign) NSTextContainer *textContainer;
@end

#pragma clang assume_nonnull end
