#include "platform/linux/host/hosted_extension.h"

#import <CryptoTokenKit/CryptoTokenKit.h>
#include <dlfcn.h>

#import "platform/linux/ctk/MainBundle.h"
#import "platform/linux/host/foundation.h"

namespace host {

Result<HostedExtension> HostedExtension::Load(const BundleCheck &checked) {
  for (const Finding &finding : checked.findings) {
    if (finding.severity == Severity::kError) return HostError(finding.text);
  }
  @autoreleasepool {
    TKSetMainBundle(ToString(checked.path));
    if (dlopen(checked.executable.c_str(), RTLD_NOW | RTLD_LOCAL) == nullptr) {
      return HostError("the bundle's executable cannot be loaded: " + std::string(dlerror()));
    }
    Class driverClass = NSClassFromString(ToString(checked.driver_class));
    if (driverClass == Nil) {
      return HostError("the bundle's executable has no driver class '" + checked.driver_class +
                       "'");
    }
    if (![driverClass isSubclassOfClass:[TKSmartCardTokenDriver class]]) {
      return HostError("the driver class '" + checked.driver_class +
                       "' is no TKSmartCardTokenDriver");
    }
    return HostedExtension(Retained([[[driverClass alloc] init] autorelease]));
  }
}

}  // namespace host
