// Files.
#pragma once

#import <Foundation/NSObjCRuntime.h>

@class NSString;

#pragma clang assume_nonnull begin

@interface NSFileManager : NSObject
@property (class, readonly, strong) NSFileManager *defaultManager;
- (BOOL)fileExistsAtPath:(NSString *)path;
- (BOOL)isExecutableFileAtPath:(NSString *)path;
@end

#pragma clang assume_nonnull end
