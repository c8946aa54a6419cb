// Gives the log the text of "%@" arguments.
#import <Foundation/Foundation.h>

#include <string>

#include "platform/linux/log/log_recorder.h"

static std::string Describe(const void *object) {
  @autoreleasepool {
    const char *text = [[(id)object description] UTF8String];
    return text == nullptr ? "(null)" : text;
  }
}

// Runs when the library is loaded, before anything that links it can log.
__attribute__((constructor)) static void RegisterDescriber() {
  oslog::SetObjectDescriber(Describe);
}
