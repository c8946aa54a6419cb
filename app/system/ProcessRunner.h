// A program that runs beside the application.
#pragma once

#import <Foundation/Foundation.h>

#include <functional>

#include "app/model/system.h"

// For the main thread, whose run loop brings what the program writes.
@interface ProcessRunner : NSObject {
  NSTask *_task;
  NSTimer *_timer;
  NSFileHandle *_output;
  NSFileHandle *_errors;
  int _awaited;  // of the program's end and the ends of its two outputs
  kelvrin::app::ProcessResult _result;
  std::function<void(kelvrin::app::ProcessResult)> _done;
}

// Starts a program, which must be there. Calls `done` once, when it has ended or has taken too
// long.
- (instancetype)initWithCommand:(const kelvrin::app::Command &)command
                           done:(std::function<void(kelvrin::app::ProcessResult)>)done;

// Ends the program, if it still runs; `done` is not called any more.
- (void)stop;

@end
