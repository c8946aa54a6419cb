// Reads property lists from files that may be anything. Objective-C++ only.
#pragma once

#import <Foundation/Foundation.h>

#include <string>

namespace host {

enum class ReadDictionary { kRead, kMissing, kMalformed };

// Reads a property list whose root is a dictionary; it is autoreleased.
ReadDictionary read_dictionary(const std::string &path, NSDictionary **dictionary);

}  // namespace host
