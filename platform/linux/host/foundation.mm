#import "platform/linux/host/foundation.h"

#import <CryptoTokenKit/CryptoTokenKit.h>

namespace host {

NSData *ToData(const Bytes &bytes) {
  return [NSData dataWithBytes:bytes.data() length:bytes.size()];
}

NSString *ToString(const std::string &text) {
  return [[[NSString alloc] initWithBytes:text.data()
                                   length:text.size()
                                 encoding:NSUTF8StringEncoding] autorelease];
}

Bytes ToBytes(NSData *data) {
  const auto *bytes = static_cast<const unsigned char *>([data bytes]);
  return {bytes, bytes + [data length]};
}

std::string ToText(NSString *string) {
  const char *text = [string UTF8String];
  return text == nullptr ? "" : text;
}

Error ErrorOrDefault(NSError *error, const std::string &description) {
  if (error == nil) return {ToText(TKErrorDomain), TKErrorCodeCommunicationError, description};
  return {ToText([error domain]), static_cast<long>([error code]),
          ToText([error localizedDescription])};
}

}  // namespace host
