// Numbers.
#pragma once

#import <Foundation/NSCoding.h>

#pragma clang assume_nonnull begin

@interface NSValue : NSObject <NSCopying>
@end

@interface NSNumber : NSValue
// What boxed expressions are made with.
+ (NSNumber *)numberWithInteger:(NSInteger)value;
+ (NSNumber *)numberWithDouble:(double)value;
+ (NSNumber *)numberWithBool:(BOOL)value;
@property (readonly) double doubleValue;
@property (readonly) NSInteger integerValue;
@end

#pragma clang assume_nonnull end
