// Run loops, and timers on them.
#pragma once

#import <Foundation/NSDate.h>

@class NSString;

#pragma clang assume_nonnull begin

typedef NSString *NSRunLoopMode;
FOUNDATION_EXPORT NSRunLoopMode const NSDefaultRunLoopMode;

@interface NSRunLoop : NSObject
@property (class, readonly, strong) NSRunLoop *currentRunLoop;
- (BOOL)runMode:(NSRunLoopMode)mode beforeDate:(NSDate *)limit;
@end

// Retains its target until it is invalidated or has fired for the last time.
@interface NSTimer : NSObject
+ (NSTimer *)scheduledTimerWithTimeInterval:(NSTimeInterval)seconds
                                     target:(id)target
                                   selector:(SEL)selector
                                   userInfo:(nullable id)userInfo
                                    repeats:(BOOL)repeats;
- (void)invalidate;
@end

#pragma clang assume_nonnull end
