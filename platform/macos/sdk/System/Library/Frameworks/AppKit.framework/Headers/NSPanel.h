// Questions to the person at the Mac.
#pragma once

#import <AppKit/NSControl.h>
#import <AppKit/NSWindow.h>

#pragma clang assume_nonnull begin

typedef NSInteger NSModalResponse;
enum : NSModalResponse { NSModalResponseCancel = 0, NSModalResponseOK = 1 };

typedef NS_ENUM(NSUInteger, NSAlertStyle) {
  NSAlertStyleWarning = 0,
  NSAlertStyleInformational = 1,
  NSAlertStyleCritical = 2,
};

@interface NSAlert : NSObject
@property (copy) NSString *messageText;
@property (copy) NSString *informativeText;
@property NSAlertStyle alertStyle;
- (NSModalResponse)runModal;
@end

@interface NSPanel : NSWindow
@end

@interface NSSavePanel : NSPanel
+ (NSSavePanel *)savePanel;
@property (copy) NSString *nameFieldStringValue;
@property (nullable, readonly, copy) NSURL *URL;
- (NSModalResponse)runModal;
@end

#pragma clang assume_nonnull end
