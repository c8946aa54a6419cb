// Cells and the controls that show one.
#pragma once

#import <AppKit/NSColor.h>
#import <AppKit/NSText.h>
#import <AppKit/NSView.h>

#pragma clang assume_nonnull begin

@interface NSCell : NSObject
@property BOOL wraps;
@property (copy) NSString *stringValue;
- (NSSize)cellSizeForBounds:(NSRect)bounds;
@end

@interface NSControl : NSView
@property (nullable, weak) id target;
@property (nullable) SEL action;
@property (getter=isEnabled) BOOL enabled;
@property (nullable, strong) NSFont *font;
@property (copy) NSString *stringValue;
@property NSTextAlignment alignment;
@property (nullable, strong) __kindof NSCell *cell;
@end

@interface NSTextField : NSControl
@property (nullable, copy) NSColor *textColor;
@property BOOL drawsBackground;
@property (getter=isBordered) BOOL bordered;
@property (getter=isBezeled) BOOL bezeled;
@property (getter=isEditable) BOOL editable;
@property (getter=isSelectable) BOOL selectable;
@end

typedef NS_ENUM(NSUInteger, NSButtonType) { NSButtonTypeMomentaryPushIn = 7 };
typedef NS_ENUM(NSUInteger, NSBezelStyle) { NSBezelStyleRounded = 1 };

@interface NSButton : NSControl
@property (copy) NSString *title;
- (void)setButtonType:(NSButtonType)type;
@property NSBezelStyle bezelStyle;
@property (copy) NSString *keyEquivalent;
@end

#pragma clang assume_nonnull end
