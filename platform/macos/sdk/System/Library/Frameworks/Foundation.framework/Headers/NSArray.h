// Arrays.
#pragma once

#import <Foundation/NSCoding.h>

#pragma clang assume_nonnull begin

@interface NSArray<__covariant ObjectType> : NSObject <NSCopying>
@property (readonly) NSUInteger count;
- (ObjectType)objectAtIndex:(NSUInteger)index;
@end

@interface NSMutableArray<ObjectType> : NSArray <ObjectType>
- (instancetype)initWithCapacity:(NSUInteger)capacity;
- (void)addObject:(ObjectType)object;
@end

#pragma clang assume_nonnull end
