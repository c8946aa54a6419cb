// Ranges of characters.
#pragma once

#import <Foundation/NSObjCRuntime.h>

typedef struct _NSRange {
  NSUInteger location;
  NSUInteger length;
} NSRange;

static inline NSUInteger NSMaxRange(NSRange range) { return range.location + range.length; }
