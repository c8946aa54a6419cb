// A token on show to applications, for tests.
#pragma once

#include <functional>
#include <thread>

#import "platform/linux/ctk/TKSystem.h"

// Runs something on a thread of its own, and waits for it.
void OnAnotherThread(const std::function<void()> &work);

// Performs what it is asked for in words: "<operation> <key's label> <algorithm> <data>". Supports
// the algorithm @"known" alone.
@interface WordService : NSObject <TKKeyService>
// How many there are.
+ (int)count;
// Is called in the next performance, which fails with the error that it returns, if any.
+ (void)setDuringCall:(std::function<NSError *()>)call;
@end

// A token in "Reader", shown and removed on another thread.
class PublishedToken {
 public:
  PublishedToken(NSString *token_id, NSArray<TKTokenKeychainItem *> *items);
  PublishedToken(const PublishedToken &) = delete;
  PublishedToken &operator=(const PublishedToken &) = delete;
  ~PublishedToken() { Remove(); }
  void Remove();

 private:
  NSString *token_id_;
};
