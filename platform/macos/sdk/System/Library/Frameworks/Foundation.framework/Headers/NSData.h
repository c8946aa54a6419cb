// Byte strings.
#pragma once

#import <Foundation/NSCoding.h>

@class NSString;

#pragma clang assume_nonnull begin

@interface NSData : NSObject <NSCopying>
@property (readonly) NSUInteger length;
@property (readonly) const void *bytes __attribute__((objc_returns_inner_pointer));
+ (instancetype)dataWithBytes:(nullable const void *)bytes length:(NSUInteger)length;
+ (nullable instancetype)dataWithContentsOfFile:(NSString *)path;
@end

#pragma clang assume_nonnull end
