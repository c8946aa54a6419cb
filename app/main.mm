// KelvrinToken.app: registers the extension by being there, and says so when it is opened.
#import <Cocoa/Cocoa.h>

#import "app/InstallationMessage.h"

// Shows the message; returns whether the user wants to see the guide.
static BOOL Show(InstallationMessage *message) {
  NSAlert *alert = [[[NSAlert alloc] init] autorelease];
  [alert setMessageText:[message title]];
  [alert setInformativeText:[message explanation]];
  [alert addButtonWithTitle:[message closeButton]];
  if ([message guidePath] != nil) [alert addButtonWithTitle:[message guideButton]];
  return [alert runModal] == NSAlertSecondButtonReturn;
}

int main() {
  @autoreleasepool {
    [[NSApplication sharedApplication] activateIgnoringOtherApps:YES];
    InstallationMessage *message =
        [[[InstallationMessage alloc] initWithBundle:[NSBundle mainBundle]] autorelease];
    if (Show(message)) {
      [[NSWorkspace sharedWorkspace] selectFile:[message guidePath] inFileViewerRootedAtPath:@""];
    }
  }
  return 0;
}
