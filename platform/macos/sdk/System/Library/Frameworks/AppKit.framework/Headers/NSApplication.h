// The application and what it reaches of others.
#pragma once

#import <AppKit/NSMenu.h>
#import <AppKit/NSResponder.h>

#pragma clang assume_nonnull begin

@protocol NSApplicationDelegate;

@interface NSApplication : NSResponder
@property (class, readonly, strong) NSApplication *sharedApplication;
@property (nullable, weak) id<NSApplicationDelegate> delegate;
@property (nullable, strong) NSMenu *mainMenu;
- (void)activateIgnoringOtherApps:(BOOL)ignoringOtherApps;
- (void)run;
@end

@interface NSWorkspace : NSObject
@property (class, readonly, strong) NSWorkspace *sharedWorkspace;
- (BOOL)selectFile:(nullable NSString *)path inFileViewerRootedAtPath:(NSString *)root;
- (BOOL)openFile:(NSString *)path withApplication:(nullable NSString *)application;
@end

typedef NSString *NSPasteboardType;
FOUNDATION_EXPORT NSPasteboardType const NSPasteboardTypeString;

@interface NSPasteboard : NSObject
@property (class, readonly, strong) NSPasteboard *generalPasteboard;
- (NSInteger)declareTypes:(NSArray<NSPasteboardType> *)types owner:(nullable id)owner;
- (BOOL)setString:(NSString *)string forType:(NSPasteboardType)type;
@end

#pragma clang assume_nonnull end
