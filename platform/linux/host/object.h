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
Object retained(id object);
#endif

}  // namespace host
