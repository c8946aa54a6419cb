#import "platform/linux/ctk/MainBundle.h"

#import <objc/runtime.h>

#include <stdlib.h>

#include <initializer_list>

// A bundle in Apple's layout. Foundation's own class expects GNUstep's, takes non-ASCII strings
// files for suspicious and remembers which files a folder had.
@interface TKExtensionBundle : NSBundle {
  NSString *_root;
  NSDictionary *_info;
  NSArray *_languages;
}
- (instancetype)initWithRoot:(NSString *)root;
@end

// The first of the variables that is not empty.
static NSString *EnvironmentLanguages() {
  for (const char *name : {"LANGUAGES", "LC_ALL", "LC_MESSAGES", "LANG"}) {
    const char *value = getenv(name);
    if (value != nullptr && value[0] != '\0') return [NSString stringWithUTF8String:value];
  }
  return @"";
}

// The language codes to look under, the best first.
static NSArray *Languages(NSDictionary *info) {
  NSMutableArray *languages = [NSMutableArray array];
  NSCharacterSet *separators = [NSCharacterSet characterSetWithCharactersInString:@";:,"];
  NSCharacterSet *codeEnd = [NSCharacterSet characterSetWithCharactersInString:@"_.@-"];
  for (NSString *locale in
       [EnvironmentLanguages() componentsSeparatedByCharactersInSet:separators]) {
    NSString *code = [[locale componentsSeparatedByCharactersInSet:codeEnd] firstObject];
    if ([code length] > 0) [languages addObject:code];
  }
  id region = [info objectForKey:@"CFBundleDevelopmentRegion"];
  if ([region isKindOfClass:[NSString class]] && [region length] > 0) [languages addObject:region];
  [languages addObject:@"en"];
  return languages;
}

// What a property list file holds, when that is a dictionary; else an empty one.
static NSDictionary *DictionaryOfFile(NSString *path) {
  NSData *data = [NSData dataWithContentsOfFile:path];
  id list = data == nil ? nil
                        : [NSPropertyListSerialization propertyListWithData:data
                                                                    options:NSPropertyListImmutable
                                                                     format:nullptr
                                                                      error:nullptr];
  return [list isKindOfClass:[NSDictionary class]] ? list : [NSDictionary dictionary];
}

static BOOL IsFolder(NSString *path) {
  BOOL isFolder = NO;
  return [[NSFileManager defaultManager] fileExistsAtPath:path isDirectory:&isFolder] && isFolder;
}

@implementation TKExtensionBundle

- (instancetype)initWithRoot:(NSString *)root {
  self = [super init];
  if (self != nil) {
    _root = [root copy];
    _info = [DictionaryOfFile([root stringByAppendingPathComponent:@"Contents/Info.plist"]) retain];
    _languages = [Languages(_info) copy];
  }
  return self;
}

- (NSString *)bundlePath {
  return _root;
}

- (NSString *)resourcePath {
  return [_root stringByAppendingPathComponent:@"Contents/Resources"];
}

- (NSDictionary *)infoDictionary {
  return _info;
}

- (id)objectForInfoDictionaryKey:(NSString *)key {
  return [_info objectForKey:key];
}

- (NSString *)bundleIdentifier {
  return [_info objectForKey:@"CFBundleIdentifier"];
}

- (NSString *)executablePath {
  NSString *name = [_info objectForKey:@"CFBundleExecutable"];
  if (![name isKindOfClass:[NSString class]]) return nil;
  return [[_root stringByAppendingPathComponent:@"Contents/MacOS"]
      stringByAppendingPathComponent:name];
}

- (NSArray *)preferredLocalizations {
  NSMutableArray *present = [NSMutableArray array];
  for (NSString *language in _languages) {
    NSString *folder = [[self resourcePath]
        stringByAppendingPathComponent:[language stringByAppendingPathExtension:@"lproj"]];
    if (![present containsObject:language] && IsFolder(folder)) [present addObject:language];
  }
  return present;
}

- (NSString *)pathForResource:(NSString *)name ofType:(NSString *)extension {
  NSString *file = [extension length] == 0 ? name : [name stringByAppendingPathExtension:extension];
  if ([file length] == 0) return nil;
  NSMutableArray *folders = [NSMutableArray arrayWithObject:@""];
  for (NSString *language in [self preferredLocalizations]) {
    [folders addObject:[language stringByAppendingPathExtension:@"lproj"]];
  }
  for (NSString *folder in folders) {
    NSString *path = [[[self resourcePath] stringByAppendingPathComponent:folder]
        stringByAppendingPathComponent:file];
    if ([[NSFileManager defaultManager] fileExistsAtPath:path]) return path;
  }
  return nil;
}

// Nil when there is no such file, or none that can be read.
- (NSDictionary *)stringsOfTable:(NSString *)tableName {
  NSString *path = [self pathForResource:[tableName length] == 0 ? @"Localizable" : tableName
                                  ofType:@"strings"];
  if (path == nil) return nil;
  NSString *contents = [NSString stringWithContentsOfFile:path
                                                 encoding:NSUTF8StringEncoding
                                                    error:nullptr];
  @try {
    return [contents propertyListFromStringsFileFormat];
  } @catch (NSException *exception) {  // how Foundation reports what it cannot parse
    return nil;
  }
}

- (NSString *)localizedStringForKey:(NSString *)key
                              value:(NSString *)value
                              table:(NSString *)tableName {
  NSString *text = [[self stringsOfTable:tableName] objectForKey:key];
  if (text != nil) return text;
  if ([value length] > 0) return value;
  return key == nil ? @"" : key;
}

- (void)dealloc {
  [_root release];
  [_info release];
  [_languages release];
  [super dealloc];
}

@end

static NSBundle *mainBundle = nil;
static IMP originalImplementation = nullptr;

static id MainBundle(id self, SEL command) {
  (void)self;
  (void)command;
  return mainBundle;
}

NSBundle *TKSetMainBundle(NSString *path) {
  if (path != nil && !IsFolder(path)) return nil;
  Method method = class_getClassMethod([NSBundle class], @selector(mainBundle));
  if (originalImplementation == nullptr) originalImplementation = method_getImplementation(method);
  NSBundle *previous = mainBundle;
  mainBundle = path == nil ? nil : [[TKExtensionBundle alloc] initWithRoot:path];
  method_setImplementation(method, path == nil ? originalImplementation : (IMP)MainBundle);
  [previous autorelease];
  return [NSBundle mainBundle];
}
