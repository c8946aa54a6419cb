// Between Foundation's values and those of plain C++. Objective-C++ only.
#pragma once

#import <Foundation/Foundation.h>

#include <string>

#include "platform/linux/host/bytes.h"
#include "platform/linux/host/error.h"

namespace host {

// Autoreleased.
NSData *to_data(const Bytes &bytes);
NSString *to_string(const std::string &text);

Bytes to_bytes(NSData *data);
// UTF-8; empty for nil.
std::string to_text(NSString *string);

Error to_error(NSError *error);

// The error of an operation that gave no result: its own, or, where it gave none, a communication
// error with a description, as the system has it.
Error error_or_default(NSError *error, const std::string &description);

}  // namespace host
