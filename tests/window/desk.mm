#include "tests/window/desk.h"

#include <cstdio>
#include <cstdlib>

#include "app/system/strings.h"
#import "platform/linux/ctk/MainBundle.h"
#include "tests/product/product_files.h"

namespace window {
namespace {

namespace fs = std::filesystem;
using kelvrin::app::Command;

// The system with one program of macOS that is not here, pluginkit; and modulecheck finds the card,
// although Foundation hands programs the environment that this process began with.
class DeskSystem : public kelvrin::app::AppleSystem {
 public:
  explicit DeskSystem(NSBundle *application) : AppleSystem(application) {}
  kelvrin::app::TaskPointer Run(const Command &command,
                                std::function<void(kelvrin::app::ProcessResult)> done) override {
    Command here = {"/usr/bin/env", {}, command.seconds};
    if (command.program == "/usr/bin/pluginkit") {
      here.arguments = {KELVRIN_PLUGINKIT, installation().extension_id, installation().extension};
    } else if (command.program.ends_with("/modulecheck")) {
      here.arguments = {std::string("SOFTHSM2_CONF=") + getenv("SOFTHSM2_CONF"), command.program};
    } else {
      return AppleSystem::Run(command, std::move(done));
    }
    here.arguments.insert(here.arguments.end(), command.arguments.begin(), command.arguments.end());
    return AppleSystem::Run(here, std::move(done));
  }
};

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
    bundle_ = [TKSetMainBundle(kelvrin::app::ToString(application)) retain];
    system_ = std::make_unique<DeskSystem>(bundle_);
    // The extension runs in this process, where it takes its own bundle for the main one.
    auto extension =
        host::HostedExtension::Load(host::CheckBundle(system_->installation().extension));
    if (!extension) {
      // What Objective-C++ throws here, nobody can catch.
      fprintf(stderr, "%s\n", extension.error().description.c_str());
      exit(EXIT_FAILURE);
    }
    desktop_ = std::make_unique<host::Desktop>(std::move(*extension),
                                               system_->installation().class_id, std::move(pin));
  }
}

Desk::~Desk() {
  @autoreleasepool {
    system_.reset();
    desktop_.reset();
    TKSetMainBundle(nil);
    [bundle_ release];
  }
}

}  // namespace window
