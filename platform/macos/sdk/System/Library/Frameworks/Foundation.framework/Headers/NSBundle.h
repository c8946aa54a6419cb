// Bundles and what they carry.
#pragma once

#import <Foundation/NSObjCRuntime.h>

@class NSString;

#pragma clang assume_nonnull begin

@interface NSBundle : NSObject
@property (class, readonly, strong) NSBundle *mainBundle;
@property (readonly, copy) NSString *bundlePath;
- (nullable id)objectForInfoDictionaryKey:(NSString *)key;
- (nullable NSString *)pathForResource:(nullable NSString *)name
                                ofType:(nullable NSString *)extension;
- (NSString *)localizedStringForKey:(NSString *)key
                              value:(nullable NSString *)value
                              table:(nullable NSString *)table;
@end

#pragma clang assume_nonnull end
