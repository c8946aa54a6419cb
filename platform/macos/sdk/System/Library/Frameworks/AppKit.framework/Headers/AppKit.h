// The part of AppKit in use, for builds without Apple's SDK.
#pragma once

#import <Foundation/Foundation.h>

#pragma clang assume_nonnull begin

typedef NSInteger NSModalResponse;
enum : NSModalResponse { NSAlertSecondButtonReturn = 1001 };

@class NSButton;

@interface NSAlert : NSObject
@property (copy) NSString *messageText;
@property (copy) NSString *informativeText;
- (NSButton *)addButtonWithTitle:(NSString *)title;
- (NSModalResponse)runModal;
@end

@interface NSResponder : NSObject
@end

@interface NSApplication : NSResponder
@property (class, readonly, strong) NSApplication *sharedApplication;
- (void)activateIgnoringOtherApps:(BOOL)ignoringOtherApps;
@end

@interface NSWorkspace : NSObject
@property (class, readonly, strong) NSWorkspace *sharedWorkspace;
- (BOOL)selectFile:(nullable NSString *)path inFileViewerRootedAtPath:(NSString *)root;
@end

#pragma clang assume_nonnull end
