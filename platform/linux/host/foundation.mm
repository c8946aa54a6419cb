#import "platform/linux/host/foundation.h"

#import <CryptoTokenKit/CryptoTokenKit.h>

namespace host {

NSData *to_data(const Bytes &bytes) {
  return [NSData dataWithBytes:bytes.data() length:bytes.size()];
}

NSString *to_string(const std::string &text) {
  return [[[NSString alloc] initWithBytes:text.data()
                                   length:text.size()
                                 encoding:NSUTF8StringEncoding] autorelease];
}

Bytes to_bytes(NSData *data) {
  const auto *bytes = static_cast<const uint8_t *>([data bytes]);
  return {bytes, bytes + [data length]};
}

std::string to_text(NSString *string) {
  const char *text = [string UTF8String];
  return text == nullptr ? "" : text;
}

Error to_error(NSError *error) {
  return {to_text([error domain]), static_cast<long>([error code]),
          to_text([error localizedDescription])};
}

Error error_or_default(NSError *error, const std::string &description) {
  if (error != nil) return to_error(error);
  return {to_text(TKErrorDomain), TKErrorCodeCommunicationError, description};
}

}  // namespace host
