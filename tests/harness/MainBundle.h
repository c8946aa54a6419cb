// Which bundle the extension's classes find their resources in.
#pragma once

#import <Foundation/Foundation.h>

// Makes the bundle at a path the process's main bundle, where the system leaves that to programs;
// where it does not, the program has to lie in that bundle. Returns whether it is the main bundle.
BOOL StandInBundle(NSString *path);
