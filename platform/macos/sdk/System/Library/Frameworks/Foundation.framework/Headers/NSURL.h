// Addresses, of files too.
#pragma once

#import <Foundation/NSCoding.h>

@class NSString;

#pragma clang assume_nonnull begin

@interface NSURL : NSObject <NSCopying>
@property (nullable, readonly, copy) NSString *path;
@end

#pragma clang assume_nonnull end
