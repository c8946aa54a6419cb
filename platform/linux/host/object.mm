#include "platform/linux/host/object.h"

namespace host {

Object retained(id object) {
  if (object == nil) return nullptr;
  // To the compiler `id` is a type of its own.
  return {(objc_object *)[object retain], [](objc_object *owned) {
            @autoreleasepool {
              [(id)owned release];
            }
          }};
}

}  // namespace host
