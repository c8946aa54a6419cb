#import "platform/linux/ctk/testing/change_notes.h"

#include <gtest/gtest.h>

@implementation ChangeNotes

- (instancetype)initWithObject:(NSObject *)object name:(NSString *)name {
  self = [super init];
  _values = [[NSMutableArray alloc] init];
  _object = [object retain];
  _name = [name retain];
  [object addObserver:self forKeyPath:name options:NSKeyValueObservingOptionNew context:nullptr];
  return self;
}

- (void)observeValueForKeyPath:(NSString *)path
                      ofObject:(id)object
                        change:(NSDictionary *)change
                       context:(void *)context {
  (void)context;
  EXPECT_FALSE([NSThread isMainThread]);
  id value = [change objectForKey:NSKeyValueChangeNewKey];
  EXPECT_TRUE([value isEqual:[object valueForKey:path]]);
  if ([value isKindOfClass:[NSArray class]]) value = [value componentsJoinedByString:@", "];
  [_values addObject:[value description]];
}

- (void)stop {
  [_object removeObserver:self forKeyPath:_name];
}

- (std::vector<std::string>)values {
  std::vector<std::string> texts;
  for (NSString *value in _values) texts.emplace_back([value UTF8String]);
  return texts;
}

- (void)dealloc {
  [_values release];
  [_object release];
  [_name release];
  [super dealloc];
}

@end

ChangeNotes *ChangesOf(NSObject *object, NSString *name) {
  return [[[ChangeNotes alloc] initWithObject:object name:name] autorelease];
}
