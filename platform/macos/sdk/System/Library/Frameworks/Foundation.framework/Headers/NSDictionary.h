// Dictionaries.
#pragma once

#import <Foundation/NSCoding.h>

@class NSArray<__covariant ObjectType>, NSString;

#pragma clang assume_nonnull begin

@interface NSDictionary<__covariant KeyType, __covariant ObjectType> : NSObject <NSCopying>
+ (nullable NSDictionary<NSString *, id> *)dictionaryWithContentsOfFile:(NSString *)path;
+ (instancetype)dictionary;
// What a literal is made with.
+ (instancetype)dictionaryWithObjects:(const ObjectType _Nonnull[_Nullable])objects
                              forKeys:(const KeyType<NSCopying> _Nonnull[_Nullable])keys
                                count:(NSUInteger)count;
- (nullable ObjectType)objectForKey:(KeyType)key;
@property (readonly, copy) NSArray<KeyType> *allKeys;
@property (readonly, copy) NSArray<ObjectType> *allValues;
@end

@interface NSMutableDictionary<KeyType, ObjectType> : NSDictionary <KeyType, ObjectType>
- (void)setObject:(ObjectType)object forKey:(KeyType<NSCopying>)key;
- (void)removeObjectForKey:(KeyType)key;
- (void)removeAllObjects;
@end

#pragma clang assume_nonnull end
