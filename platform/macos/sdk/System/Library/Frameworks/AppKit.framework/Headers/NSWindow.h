// Windows.
#pragma once

#import <AppKit/NSView.h>

@class NSNotification;

#pragma clang assume_nonnull begin

typedef NS_OPTIONS(NSUInteger, NSWindowStyleMask) {
  NSWindowStyleMaskTitled = 1 << 0,
  NSWindowStyleMaskClosable = 1 << 1,
  NSWindowStyleMaskMiniaturizable = 1 << 2,
  NSWindowStyleMaskResizable = 1 << 3,
};
typedef NS_ENUM(NSUInteger, NSBackingStoreType) { NSBackingStoreBuffered = 2 };
typedef NSString *NSWindowFrameAutosaveName;

@protocol NSWindowDelegate <NSObject>
@optional
- (void)windowWillClose:(NSNotification *)notification;
@end

@interface NSWindow : NSResponder
- (instancetype)initWithContentRect:(NSRect)rectangle
                          styleMask:(NSWindowStyleMask)style
                            backing:(NSBackingStoreType)backing
                              defer:(BOOL)defer;
@property (copy) NSString *title;
@property (getter=isReleasedWhenClosed) BOOL releasedWhenClosed;
@property (nullable, assign) id<NSWindowDelegate> delegate;
@property (nullable, strong) __kindof NSView *contentView;
@property NSSize contentMinSize;
@property (nullable, weak) NSView *initialFirstResponder;
@property (nullable, readonly, assign) NSResponder *firstResponder;
- (BOOL)makeFirstResponder:(nullable NSResponder *)responder;
- (BOOL)setFrameAutosaveName:(NSWindowFrameAutosaveName)name;
- (void)center;
- (void)makeKeyAndOrderFront:(nullable id)sender;
- (void)performClose:(nullable id)sender;
- (void)close;
@end

#pragma clang assume_nonnull end
