#import "token/BundleResources.h"

NSString *ModulePath(NSString *resource) {
  return [[NSBundle mainBundle] pathForResource:resource ofType:@"dylib"];
}

NSDictionary *Configuration() {
  NSString *path = [[NSBundle mainBundle] pathForResource:@"config" ofType:@"plist"];
  return path == nil ? nil : [NSDictionary dictionaryWithContentsOfFile:path];
}

const char *ReaderName(NSDictionary *configuration) {
  id name = [configuration objectForKey:@"readerName"];
  // Anything but a string is no name.
  return [name isKindOfClass:[NSString class]] ? [name UTF8String] : nullptr;
}
