// Points in time.
#pragma once

#import <Foundation/NSCoding.h>

#pragma clang assume_nonnull begin

typedef double NSTimeInterval;  // seconds

@interface NSDate : NSObject <NSCopying>
+ (instancetype)dateWithTimeIntervalSinceNow:(NSTimeInterval)seconds;
@property (readonly) NSTimeInterval timeIntervalSinceReferenceDate;
@end

#pragma clang assume_nonnull end
