// The size of a text that wraps: GNUstep tells that of one line, AppKit what the width leads to.
#import <Cocoa/Cocoa.h>

#include <algorithm>
#include <cmath>

@interface NSTextFieldCell (WrappedText)
@end

@implementation NSTextFieldCell (WrappedText)

- (NSSize)cellSizeForBounds:(NSRect)bounds {
  const NSSize line = [super cellSizeForBounds:bounds];
  if (![self wraps]) return line;
  const NSRect wrapped = [[self attributedStringValue]
      boundingRectWithSize:NSMakeSize(NSWidth(bounds) - 4, NSHeight(bounds))
                   options:NSStringDrawingUsesLineFragmentOrigin];
  return NSMakeSize(std::min(line.width, NSWidth(bounds)),
                    std::max(line.height, std::ceil(NSHeight(wrapped))));
}

@end
