// Notifications.
#pragma once

#import <Foundation/NSObjCRuntime.h>

@class NSDictionary<KeyType, ObjectType>, NSString;

#pragma clang assume_nonnull begin

typedef NSString *NSNotificationName;

@interface NSNotification : NSObject
@property (nullable, readonly, strong) id object;
@property (nullable, readonly, copy) NSDictionary *userInfo;
@end

@interface NSNotificationCenter : NSObject
@property (class, readonly, strong) NSNotificationCenter *defaultCenter;
- (void)addObserver:(id)observer
           selector:(SEL)selector
               name:(nullable NSNotificationName)name
             object:(nullable id)object;
- (void)removeObserver:(id)observer;
@end

#pragma clang assume_nonnull end
