// Keeps the card operations of all sessions apart.
#pragma once

#include <pthread.h>

// Held from an operation's login test to the card's result: all sessions of a token share one
// PKCS#11 session, and two tokens may share one module. Process-wide and statically initialised,
// since nothing runs before the platform's entry.
class OperationLock {
 public:
  OperationLock() { pthread_mutex_lock(&mutex_); }
  ~OperationLock() { pthread_mutex_unlock(&mutex_); }
  OperationLock(const OperationLock&) = delete;
  OperationLock& operator=(const OperationLock&) = delete;

 private:
  static inline constinit pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
};
