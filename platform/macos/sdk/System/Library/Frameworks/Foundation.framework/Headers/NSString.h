// Strings.
#pragma once

#import <Foundation/NSCoding.h>

#define NS_FORMAT_FUNCTION(f, a) __attribute__((format(__NSString__, f, a)))

@class NSArray<__covariant ObjectType>, NSError;

#pragma clang assume_nonnull begin

typedef NSUInteger NSStringEncoding;
enum : NSStringEncoding {
  NSASCIIStringEncoding = 1,
  NSUTF8StringEncoding = 4,
  NSISOLatin1StringEncoding = 5,
};

@interface NSString : NSObject <NSCopying>
+ (nullable instancetype)stringWithCString:(const char *)string encoding:(NSStringEncoding)encoding;
+ (nullable instancetype)stringWithUTF8String:(const char *)string;
+ (nullable instancetype)stringWithContentsOfFile:(NSString *)path
                                         encoding:(NSStringEncoding)encoding
                                            error:(NSError *_Nullable *_Nullable)error;
+ (instancetype)stringWithFormat:(NSString *)format, ... NS_FORMAT_FUNCTION(1, 2);
@property (nullable, readonly) const char *UTF8String __attribute__((objc_returns_inner_pointer));
@property (readonly) NSUInteger length;
@property (readonly) NSInteger integerValue;
- (BOOL)isEqualToString:(NSString *)string;
- (BOOL)writeToFile:(NSString *)path
         atomically:(BOOL)atomically
           encoding:(NSStringEncoding)encoding
              error:(NSError *_Nullable *_Nullable)error;
- (NSArray<NSString *> *)componentsSeparatedByString:(NSString *)separator;
- (NSString *)stringByAppendingPathComponent:(NSString *)component;
@end

@interface NSMutableString : NSString
+ (NSMutableString *)stringWithCapacity:(NSUInteger)capacity;
- (void)appendFormat:(NSString *)format, ... NS_FORMAT_FUNCTION(1, 2);
@end

#pragma clang assume_nonnull end
