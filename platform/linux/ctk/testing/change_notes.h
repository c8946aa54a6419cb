// What a property was changed to, for tests.
#pragma once

#import <Foundation/Foundation.h>

#include <string>
#include <vector>

// Notes the values of a property as they change, and refuses to be told on the main thread.
@interface ChangeNotes : NSObject {
  NSMutableArray *_values;
  NSObject *_object;
  NSString *_name;
}
- (instancetype)initWithObject:(NSObject *)object name:(NSString *)name;
- (void)stop;
- (std::vector<std::string>)values;
@end

// Notes that live as long as the pool.
ChangeNotes *ChangesOf(NSObject *object, NSString *name);
