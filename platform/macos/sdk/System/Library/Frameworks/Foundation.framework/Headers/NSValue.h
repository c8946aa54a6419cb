// Numbers.
#pragma once

#import <Foundation/NSCoding.h>

#pragma clang assume_nonnull begin

@interface NSNumber : NSObject <NSCopying>
// What literals and boxed expressions are made with.
+ (NSNumber *)numberWithInt:(int)value;
+ (NSNumber *)numberWithInteger:(NSInteger)value;
@end

#pragma clang assume_nonnull end
