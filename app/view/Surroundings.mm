#import "app/view/Surroundings.h"

@implementation Surroundings

- (instancetype)initWithGuide:(NSString *)guide {
  self = [super init];
  if (self != nil) _guide = [guide copy];
  return self;
}

- (void)copyText:(NSString *)text {
  NSPasteboard *pasteboard = [NSPasteboard generalPasteboard];
  [pasteboard declareTypes:@[ NSPasteboardTypeString ] owner:nil];
  [pasteboard setString:text forType:NSPasteboardTypeString];
}

- (NSString *)pathToSave:(NSString *)name {
  NSSavePanel *panel = [NSSavePanel savePanel];
  [panel setNameFieldStringValue:name];
  if ([panel runModal] != NSModalResponseOK) return nil;
  return [[panel URL] path];
}

- (NSString *)writeText:(NSString *)text toPath:(NSString *)path {
  NSError *error = nil;
  if ([text writeToFile:path atomically:YES encoding:NSUTF8StringEncoding error:&error]) return nil;
  NSString *reason = [error localizedDescription];
  return reason == nil ? @"" : reason;  // GNUstep knows none
}

- (void)showFile:(NSString *)path {
  [[NSWorkspace sharedWorkspace] selectFile:path inFileViewerRootedAtPath:@""];
}

- (void)openGuide {
  if (![[NSWorkspace sharedWorkspace] openFile:_guide withApplication:@"TextEdit"]) {
    [self showFile:_guide];
  }
}

- (void)showProblem:(NSString *)title explanation:(NSString *)explanation {
  NSAlert *alert = [[[NSAlert alloc] init] autorelease];
  [alert setAlertStyle:NSAlertStyleWarning];
  [alert setMessageText:title];
  [alert setInformativeText:explanation];
  [alert runModal];
}

- (void)dealloc {
  [_guide release];
  [super dealloc];
}

@end
