// Arrays.
#pragma once

#import <Foundation/NSCoding.h>
#import <Foundation/NSEnumerator.h>

@class NSString;

#pragma clang assume_nonnull begin

@interface NSArray<__covariant ObjectType> : NSObject <NSCopying, NSFastEnumeration>
+ (instancetype)array;
+ (instancetype)arrayWithObjects:(ObjectType)first, ... __attribute__((sentinel));
// What a literal is made with.
+ (instancetype)arrayWithObjects:(const ObjectType _Nonnull[_Nonnull])objects
                           count:(NSUInteger)count;
@property (readonly) NSUInteger count;
- (ObjectType)objectAtIndex:(NSUInteger)index;
- (BOOL)containsObject:(ObjectType)object;
- (NSString *)componentsJoinedByString:(NSString *)separator;
@end

@interface NSMutableArray<ObjectType> : NSArray <ObjectType>
- (instancetype)initWithCapacity:(NSUInteger)capacity;
- (void)addObject:(ObjectType)object;
@end

#pragma clang assume_nonnull end
