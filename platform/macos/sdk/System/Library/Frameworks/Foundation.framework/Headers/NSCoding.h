// Copying and coding.
#pragma once

#import <Foundation/NSObjCRuntime.h>

#pragma clang assume_nonnull begin

@protocol NSCopying
- (id)copyWithZone:(nullable struct _NSZone *)zone;
@end

@class NSCoder;

@protocol NSCoding
- (void)encodeWithCoder:(NSCoder *)coder;
- (nullable instancetype)initWithCoder:(NSCoder *)coder;
@end

@protocol NSSecureCoding <NSCoding>
@required
@property (class, readonly) BOOL supportsSecureCoding;
@end

#pragma clang assume_nonnull end
