// The system's colours and fonts.
#pragma once

#import <Foundation/Foundation.h>

#pragma clang assume_nonnull begin

@interface NSColor : NSObject <NSCopying>
@property (class, strong, readonly) NSColor *labelColor;
@property (class, strong, readonly) NSColor *secondaryLabelColor;
@property (class, strong, readonly) NSColor *systemGreenColor;
@property (class, strong, readonly) NSColor *systemOrangeColor;
@end

@interface NSFont : NSObject <NSCopying>
// A size of 0 is the usual one.
+ (NSFont *)systemFontOfSize:(CGFloat)size;
+ (NSFont *)boldSystemFontOfSize:(CGFloat)size;
+ (nullable NSFont *)userFixedPitchFontOfSize:(CGFloat)size;
@end

#pragma clang assume_nonnull end
