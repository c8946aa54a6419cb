// Errors.
#pragma once

#import <Foundation/NSCoding.h>

@class NSDictionary<KeyType, ObjectType>, NSString;

#pragma clang assume_nonnull begin

FOUNDATION_EXPORT NSString *const NSLocalizedDescriptionKey;

@interface NSError : NSObject <NSCopying>
+ (instancetype)errorWithDomain:(NSString *)domain
                           code:(NSInteger)code
                       userInfo:(nullable NSDictionary<NSString *, id> *)userInfo;
@property (readonly, copy) NSString *domain;
@property (readonly) NSInteger code;
@property (readonly, copy) NSString *localizedDescription;
@end

#pragma clang assume_nonnull end
