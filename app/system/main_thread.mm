#include "app/system/main_thread.h"

#import <Foundation/Foundation.h>

// A function as an object that threads can be told to send a message to.
@interface FunctionCall : NSObject {
  std::function<void()> _function;
}
- (instancetype)initWithFunction:(std::function<void()>)function;
- (void)call;
@end

@implementation FunctionCall

- (instancetype)initWithFunction:(std::function<void()>)function {
  self = [super init];
  if (self != nil) _function = std::move(function);
  return self;
}

- (void)call {
  @autoreleasepool {
    // What it holds goes with it, on this thread.
    const std::function<void()> function = std::exchange(_function, nullptr);
    function();
  }
}

@end

namespace kelvrin::app {

void OnMainThread(std::function<void()> function) {
  FunctionCall *call = [[FunctionCall alloc] initWithFunction:std::move(function)];
  [call performSelectorOnMainThread:@selector(call) withObject:nil waitUntilDone:NO];
  [call release];
}

void OnOtherThread(std::function<void()> function) {
  FunctionCall *call = [[FunctionCall alloc] initWithFunction:std::move(function)];
  [NSThread detachNewThreadSelector:@selector(call) toTarget:call withObject:nil];
  [call release];
}

}  // namespace kelvrin::app
