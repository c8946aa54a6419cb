// Tells the leak checker what Foundation and the bring-up keep by design.
#pragma once

#import <Foundation/Foundation.h>

namespace token_testing {

// What is allocated on this thread while one lives counts as no leak.
class LeaksAllowed {
 public:
  LeaksAllowed();
  ~LeaksAllowed();
  LeaksAllowed(const LeaksAllowed&) = delete;
  LeaksAllowed& operator=(const LeaksAllowed&) = delete;
};

// An autorelease pool for a test and its fixture. What Foundation keeps from its first use on is
// made before.
class Pool {
 public:
  Pool();
  ~Pool();
  Pool(const Pool&) = delete;
  Pool& operator=(const Pool&) = delete;

 private:
  NSAutoreleasePool* pool_;
};

}  // namespace token_testing
