// What the extension's bundle carries for the bring-up: the modules and the configuration.
#pragma once

#import <Foundation/Foundation.h>

// Returns the path of a module resource ("dylib"), autoreleased; nil when the bundle has none.
NSString *ModulePath(NSString *resource);

// Returns the configuration ("config", "plist"), autoreleased; nil when it is missing or broken.
NSDictionary *Configuration();

// Returns the configuration's reader name as UTF-8, or NULL when it names none. The bytes live as
// long as the configuration and the current autorelease pool.
const char *ReaderName(NSDictionary *configuration);
