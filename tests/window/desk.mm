#include "tests/window/desk.h"

#include <cstdio>
#include <cstdlib>

#import "platform/linux/ctk/MainBundle.h"
#import "platform/linux/host/foundation.h"
#include "tests/product/product_files.h"

namespace window {
namespace {

namespace fs = std::filesystem;

// What the IDs of the extension's tokens begin with.
std::string ClassIdOf(const fs::path &extension) {
  const std::string file = extension / "Contents/Info.plist";
  NSDictionary *info = [NSDictionary dictionaryWithContentsOfFile:host::ToString(file)];
  NSDictionary *attributes =
      [[info objectForKey:@"NSExtension"] objectForKey:@"NSExtensionAttributes"];
  return host::ToText([attributes objectForKey:@"com.apple.ctk.class-id"]);
}

}  // namespace

fs::path Install(const fs::path &folder) {
  const fs::path home = fs::absolute(folder) / "home";
  const fs::path application = home / "Applications/KelvrinToken.app";
  fs::remove_all(application);
  fs::create_directories(application.parent_path());
  fs::copy(KELVRIN_APPLICATION, application, fs::copy_options::recursive);
  fs::create_directories(application / "Contents/PlugIns");
  product::CopyBundle(application / "Contents/PlugIns/KelvrinToken.appex");
  fs::create_directories(application / "Contents/MacOS");
  fs::create_symlink(product::Modulecheck(), application / "Contents/MacOS/modulecheck");
  setenv("HOME", home.c_str(), 1);
  return application;
}

Desk::Desk(const fs::path &application, host::PinSource pin) {
  @autoreleasepool {
    bundle_ = [TKSetMainBundle(host::ToString(application)) retain];
    const fs::path bundled = application / "Contents/PlugIns/KelvrinToken.appex";
    auto extension = host::HostedExtension::Load(host::CheckBundle(bundled));
    if (!extension) {
      // What Objective-C++ throws here, nobody can catch.
      fprintf(stderr, "%s\n", extension.error().description.c_str());
      exit(EXIT_FAILURE);
    }
    desktop_ =
        std::make_unique<host::Desktop>(std::move(*extension), ClassIdOf(bundled), std::move(pin));
  }
}

Desk::~Desk() {
  @autoreleasepool {
    desktop_.reset();
    TKSetMainBundle(nil);
    [bundle_ release];
  }
}

}  // namespace window
