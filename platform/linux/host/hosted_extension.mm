#include "platform/linux/host/hosted_extension.h"

#import <CryptoTokenKit/CryptoTokenKit.h>
#include <dlfcn.h>

#import "platform/linux/ctk/MainBundle.h"
#import "platform/linux/host/foundation.h"

namespace host {

Result<HostedExtension> HostedExtension::load(const std::string &bundle) {
  return load(check_bundle(bundle));
}

Result<HostedExtension> HostedExtension::load(const BundleCheck &checked) {
  for (const Finding &finding : checked.findings) {
    if (finding.severity == Severity::kError) return host_error(finding.text);
  }
  @autoreleasepool {
    if (TKSetMainBundle(to_string(checked.path)) == nil) {
      return host_error("the bundle " + checked.path + " cannot be opened");
    }
    if (dlopen(checked.executable.c_str(), RTLD_NOW | RTLD_LOCAL) == nullptr) {
      return host_error("the bundle's executable cannot be loaded: " + std::string(dlerror()));
    }
    Class driverClass = NSClassFromString(to_string(checked.driver_class));
    if (driverClass == Nil) {
      return host_error("the bundle's executable has no driver class '" + checked.driver_class +
                        "'");
    }
    if (![driverClass isSubclassOfClass:[TKSmartCardTokenDriver class]]) {
      return host_error("the driver class '" + checked.driver_class +
                        "' is no TKSmartCardTokenDriver");
    }
    id driver = [[[driverClass alloc] init] autorelease];
    if (driver == nil) {
      return host_error("the driver class '" + checked.driver_class + "' gives no instance");
    }
    return HostedExtension(retained(driver));
  }
}

}  // namespace host
