// The system as the application finds it on a desk.
#pragma once

#include "app/system/apple_system.h"

namespace window {

// The system with one program of macOS that is not here, pluginkit; and modulecheck finds the card,
// although Foundation hands programs the environment that this process began with.
class DeskSystem : public kelvrin::app::AppleSystem {
 public:
  // `application`: the bundle that the window is of.
  explicit DeskSystem(NSBundle *application)
      : AppleSystem(application), here_(AppleSystem::installation()) {
    here_.system_version = "as played on Linux";
  }
  const kelvrin::app::Installation &installation() const override { return here_; }
  kelvrin::app::TaskPointer Run(const kelvrin::app::Command &command,
                                std::function<void(kelvrin::app::ProcessResult)> done) override {
    kelvrin::app::Command here = {"/usr/bin/env", {}, command.seconds};
    if (command.program == "/usr/bin/pluginkit") {
      ++pluginkit_runs_;
      here.arguments = {KELVRIN_PLUGINKIT, installation().extension_id, installation().extension};
    } else if (command.program.ends_with("/modulecheck")) {
      here.arguments = {std::string("SOFTHSM2_CONF=") + getenv("SOFTHSM2_CONF"), command.program};
    } else {
      return AppleSystem::Run(command, std::move(done));
    }
    here.arguments.insert(here.arguments.end(), command.arguments.begin(), command.arguments.end());
    return AppleSystem::Run(here, std::move(done));
  }
  // How often pluginkit was started.
  int pluginkit_runs() const { return pluginkit_runs_; }

 private:
  kelvrin::app::Installation here_;
  int pluginkit_runs_ = 0;
};

}  // namespace window
