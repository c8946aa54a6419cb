// What the retain-count checker has to find: an object that nobody releases.
#import <Foundation/Foundation.h>

NSUInteger LeakAnArray() {
  NSMutableArray *array = [[NSMutableArray alloc] initWithCapacity:1];
  return [array hash];
}
