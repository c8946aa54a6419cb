#import "app/InstallationMessage.h"

@implementation InstallationMessage

- (instancetype)initWithBundle:(NSBundle *)bundle {
  self = [super init];
  if (self != nil) _bundle = [bundle retain];
  return self;
}

// Returns a text in the user's language, autoreleased.
- (NSString *)text:(NSString *)key {
  return [_bundle localizedStringForKey:key value:nil table:nil];
}

// Whether the application carries the extension, without which it does nothing.
- (BOOL)hasExtension {
  NSString *extension =
      [[_bundle bundlePath] stringByAppendingPathComponent:@"Contents/PlugIns/KelvrinToken.appex"];
  return [[NSFileManager defaultManager] fileExistsAtPath:extension];
}

- (NSString *)title {
  return [self text:[self hasExtension] ? @"INSTALLED" : @"MISSING"];
}

- (NSString *)explanation {
  return [self text:[self hasExtension] ? @"INSTALLED_EXPLANATION" : @"MISSING_EXPLANATION"];
}

- (NSString *)closeButton {
  return [self text:@"CLOSE"];
}

- (NSString *)guideButton {
  return [self text:@"SHOW_GUIDE"];
}

- (NSString *)guidePath {
  return [_bundle pathForResource:@"macos" ofType:@"md"];
}

- (void)dealloc {
  [_bundle release];
  [super dealloc];
}

@end
