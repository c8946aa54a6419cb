// Between Foundation's values and those of plain C++.
#pragma once

#import <Foundation/Foundation.h>

#include <string>

#include "encoding/bytes.h"

namespace kelvrin::app {

// UTF-8; empty for nil.
inline std::string ToText(NSString *string) {
  const char *text = [string UTF8String];
  return text == nullptr ? "" : text;
}

// Autoreleased. What is no UTF-8 gives an empty string.
inline NSString *ToString(const std::string &text) {
  NSString *string = [NSString stringWithUTF8String:text.c_str()];
  return string == nil ? @"" : string;
}

// Empty for nil.
inline encoding::Bytes ToBytes(NSData *data) {
  const auto *bytes = static_cast<const unsigned char *>([data bytes]);
  return encoding::Bytes(bytes, bytes + [data length]);
}

// Autoreleased.
inline NSData *ToData(const encoding::Bytes &bytes) {
  return [NSData dataWithBytes:bytes.data() length:bytes.size()];
}

}  // namespace kelvrin::app
