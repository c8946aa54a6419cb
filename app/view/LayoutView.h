// A window's content, which has its owner place what is in it whenever the size changes.
#pragma once

#import <Cocoa/Cocoa.h>

@protocol Arranging
// Places the views for a content of this size; y counts from the top.
- (void)arrangeInSize:(NSSize)size;
@end

@interface LayoutView : NSView {
  id<Arranging> _owner;  // not retained: it owns the window, which owns this
  NSSize _content;
}

- (instancetype)initWithSize:(NSSize)size owner:(id<Arranging>)owner;

// The owner goes; the window may stay for as long as the system needs it.
- (void)forgetOwner;

// Places everything anew, since something needs more room or less.
- (void)arrange;

@end
