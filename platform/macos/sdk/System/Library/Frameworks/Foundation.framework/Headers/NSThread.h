// Threads.
#pragma once

#import <Foundation/NSObjCRuntime.h>

#pragma clang assume_nonnull begin

@interface NSThread : NSObject
+ (void)detachNewThreadSelector:(SEL)selector toTarget:(id)target withObject:(nullable id)argument;
@end

@interface NSObject (NSThreadPerformAdditions)
- (void)performSelectorOnMainThread:(SEL)selector
                         withObject:(nullable id)argument
                      waitUntilDone:(BOOL)wait;
@end

#pragma clang assume_nonnull end
