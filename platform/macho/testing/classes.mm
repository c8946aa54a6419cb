// Objective-C classes of every shape that the loader registers.
#import <Foundation/Foundation.h>

@protocol KelvrinCounting <NSObject>
- (NSInteger)count;
@end

@interface KelvrinBase : NSObject
@property (readonly, retain) NSString *name;
- (NSString *)describe:(NSString *)text;
@end

@implementation KelvrinBase
@synthesize name = _name;
+ (NSString *)title {
  return @"Schlüssel – Karte";
}
- (instancetype)init {
  self = [super init];
  if (self != nil) _name = [[[self class] title] retain];
  return self;
}
- (NSString *)describe:(NSString *)text {
  return [NSString stringWithFormat:@"%@ %d %@ %d %d %d %ld", text, 1, _name, 2, 3, 4, 5L];
}
- (double)half:(double)value {
  return value / 2;
}
- (void)dealloc {
  [_name release];
  [super dealloc];
}
@end

@interface KelvrinDerived : KelvrinBase <KelvrinCounting> {
  NSInteger _count;
}
@end

@implementation KelvrinDerived
- (NSInteger)count {
  return ++_count;
}
- (double)half:(double)value {
  return [super half:value] + 1;
}
@end

@interface KelvrinDerived (Category)
- (NSInteger)counted;
@end

@implementation KelvrinDerived (Category)
- (NSInteger)counted {
  return _count;
}
@end

@interface NSObject (KelvrinAnswer)
- (NSInteger)kelvrinAnswer;
@end

@implementation NSObject (KelvrinAnswer)
- (NSInteger)kelvrinAnswer {
  return 42;
}
@end
