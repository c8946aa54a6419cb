#import "app/InstallationMessage.h"

#include <stdlib.h>

#include "app/model/installation_place.h"

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

// Whether the application lies where it may stay. From a folder of downloads the system may even
// run a copy that is gone afterwards.
- (BOOL)isInPlace {
  return IsInstallationPlace([[_bundle bundlePath] UTF8String], getenv("HOME"));
}

- (NSString *)title {
  if (![self hasExtension]) return [self text:@"MISSING"];
  return [self text:[self isInPlace] ? @"INSTALLED" : @"NOT_INSTALLED"];
}

- (NSString *)explanation {
  if (![self hasExtension]) return [self text:@"MISSING_EXPLANATION"];
  return [self text:[self isInPlace] ? @"INSTALLED_EXPLANATION" : @"NOT_INSTALLED_EXPLANATION"];
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
