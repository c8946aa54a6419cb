// Word of changed properties.
#pragma once

#import <Foundation/NSObjCRuntime.h>

@class NSDictionary<KeyType, ObjectType>, NSString;

#pragma clang assume_nonnull begin

typedef NS_OPTIONS(NSUInteger, NSKeyValueObservingOptions) { NSKeyValueObservingOptionNew = 1 };

@interface NSObject (NSKeyValueObserving)
- (void)observeValueForKeyPath:(nullable NSString *)keyPath
                      ofObject:(nullable id)object
                        change:(nullable NSDictionary<NSString *, id> *)change
                       context:(nullable void *)context;
@end

@interface NSObject (NSKeyValueObserverRegistration)
- (void)addObserver:(NSObject *)observer
         forKeyPath:(NSString *)keyPath
            options:(NSKeyValueObservingOptions)options
            context:(nullable void *)context;
- (void)removeObserver:(NSObject *)observer forKeyPath:(NSString *)keyPath;
@end

#pragma clang assume_nonnull end
