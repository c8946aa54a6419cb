// Objective-C objects owned from plain C++.
#pragma once

#include <memory>

#ifdef __OBJC__
#import <Foundation/Foundation.h>
#endif

struct objc_object;  // what `id` points to

namespace host {

// A retained object; released, within a pool of its own, with the last copy.
using Object = std::shared_ptr<objc_object>;

#ifdef __OBJC__
// Retains an object; nil gives null.
inline Object Retained(id object) {
  if (object == nil) return nullptr;
  // To the compiler `id` is a type of its own.
  return {(objc_object *)[object retain], [](objc_object *owned) {
            @autoreleasepool {
              [(id)owned release];
            }
          }};
}
#endif

}  // namespace host
