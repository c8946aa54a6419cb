#import "platform/linux/host/property_list.h"

#import "platform/linux/host/foundation.h"

namespace host {

ReadDictionary read_dictionary(const std::string &path, NSDictionary **dictionary) {
  NSData *data = [NSData dataWithContentsOfFile:to_string(path)];
  if (data == nil) return ReadDictionary::kMissing;
  NSPropertyListFormat format = NSPropertyListXMLFormat_v1_0;
  id root = [NSPropertyListSerialization propertyListWithData:data
                                                      options:NSPropertyListImmutable
                                                       format:&format
                                                        error:nullptr];
  if (![root isKindOfClass:[NSDictionary class]]) return ReadDictionary::kMalformed;
  *dictionary = root;
  return ReadDictionary::kRead;
}

}  // namespace host
