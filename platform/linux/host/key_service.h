// Serves applications that use the keys of one inserted card. Objective-C++ only.
#pragma once

#include <memory>
#include <vector>

#import "platform/linux/ctk/TKSystem.h"
#include "platform/linux/host/client.h"

namespace host {
// What a KeyService is made of.
struct Service;
}  // namespace host

#pragma clang assume_nonnull begin

// One client of the card, which all applications share.
@interface KeyService : NSObject <TKKeyService> {
  host::Service *_made;
}
// `client`: where the token gave no session, every operation ends with its error. `items`: the
// token's. `pin`: asked on the thread of the operation.
- (instancetype)initWithClient:(host::Result<host::Client>)client
                         items:(const std::vector<host::Item> &)items
                           pin:(const host::PinSource &)pin;
@end

#pragma clang assume_nonnull end
