// Drivers, tokens and sessions whose class implements the delegate's protocol are their own
// delegates, since nothing else sets one.
#pragma once

#import <Foundation/Foundation.h>

#pragma clang assume_nonnull begin

// Returns the object when its class conforms to the protocol of that name, else nil. Asked by name:
// this runtime keeps one protocol object an image, and they do not compare.
id _Nullable TKOwnDelegate(id object, NSString *protocolName);

#pragma clang assume_nonnull end
