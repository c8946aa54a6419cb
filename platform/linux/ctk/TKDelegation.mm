#import "platform/linux/ctk/TKDelegation.h"

id TKOwnDelegate(id object, NSString *protocolName) {
  Protocol *protocol = NSProtocolFromString(protocolName);
  return protocol != nil && [object conformsToProtocol:protocol] ? object : nil;
}
