// This process, and those that it starts.
#pragma once

#import <Foundation/NSNotification.h>

@class NSArray<__covariant ObjectType>;

#pragma clang assume_nonnull begin

@interface NSProcessInfo : NSObject
@property (class, readonly, strong) NSProcessInfo *processInfo;
@property (readonly, copy) NSDictionary<NSString *, NSString *> *environment;
@property (readonly, copy) NSString *operatingSystemVersionString;
@end

FOUNDATION_EXPORT NSNotificationName const NSFileHandleReadToEndOfFileCompletionNotification;
FOUNDATION_EXPORT NSString *const NSFileHandleNotificationDataItem;

@interface NSFileHandle : NSObject
@property (class, readonly, strong) NSFileHandle *fileHandleWithNullDevice;
- (void)readToEndOfFileInBackgroundAndNotify;
@end

@interface NSPipe : NSObject
+ (NSPipe *)pipe;
@property (readonly, retain) NSFileHandle *fileHandleForReading;
@end

FOUNDATION_EXPORT NSNotificationName const NSTaskDidTerminateNotification;

@interface NSTask : NSObject
@property (nullable, copy) NSString *launchPath;
@property (nullable, copy) NSArray<NSString *> *arguments;
@property (nullable, copy) NSDictionary<NSString *, NSString *> *environment;
@property (nullable, retain) id standardInput;
@property (nullable, retain) id standardOutput;
@property (nullable, retain) id standardError;
// Raises an exception when there is no such program.
- (void)launch;
- (void)terminate;
@property (readonly, getter=isRunning) BOOL running;
@property (readonly) int terminationStatus;
@end

#pragma clang assume_nonnull end
