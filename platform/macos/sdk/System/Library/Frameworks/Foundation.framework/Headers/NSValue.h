// Numbers.
#pragma once

#import <Foundation/NSCoding.h>

#pragma clang assume_nonnull begin

@interface NSValue : NSObject <NSCopying>
@end

@interface NSNumber : NSValue
// What literals and boxed expressions are made with.
+ (NSNumber *)numberWithInt:(int)value;
+ (NSNumber *)numberWithInteger:(NSInteger)value;
@end

#pragma clang assume_nonnull end
