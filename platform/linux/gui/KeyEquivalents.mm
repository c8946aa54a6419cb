// Keys of buttons: AppKit asks the buttons of a window before its focus, GNUstep only for keys that
// come with Command. Here they are asked when nothing before them has taken the key.
#import <Cocoa/Cocoa.h>

@interface NSView (KeyEquivalents)
@end

@implementation NSView (KeyEquivalents)

- (void)keyDown:(NSEvent *)event {
  if (self == [[self window] contentView] && [self performKeyEquivalent:event]) return;
  [super keyDown:event];
}

@end
