// Sets of indexes.
#pragma once

#import <Foundation/NSCoding.h>

#pragma clang assume_nonnull begin

@interface NSIndexSet : NSObject <NSCopying>
+ (instancetype)indexSetWithIndex:(NSUInteger)value;
@end

#pragma clang assume_nonnull end
