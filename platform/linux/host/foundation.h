// Between Foundation's values and those of plain C++. Objective-C++ only.
#pragma once

#import <Foundation/Foundation.h>

#include <string>

#include "platform/linux/host/result.h"

namespace host {

// Autoreleased.
NSData *ToData(const Bytes &bytes);
NSString *ToString(const std::string &text);

Bytes ToBytes(NSData *data);
// UTF-8; empty for nil.
std::string ToText(NSString *string);

// The error of an operation that gave no result: its own, or, where it gave none, a communication
// error with a description, as the system has it.
Error ErrorOrDefault(NSError *error, const std::string &description);

}  // namespace host
