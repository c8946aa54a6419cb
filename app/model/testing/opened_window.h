// A model over a scripted system, as a window has it.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/model/testing/scripted_system.h"
#include "app/model/window_model.h"

namespace kelvrin::app {

class OpenedWindow : public testing::Test {
 protected:
  OpenedWindow() {
    model_ = std::make_unique<WindowModel>(&system_, [this] {
      ++changes_;
      if (when_changed_) when_changed_();
    });
  }

  State state() const { return model_->situation().state; }
  // Of all certificates, in order.
  std::vector<std::string> names() const {
    std::vector<std::string> names;
    for (const Certificate& certificate : model_->certificates()) names.push_back(certificate.name);
    return names;
  }
  std::string selected() const {
    const Certificate* certificate = model_->selected();
    return certificate == nullptr ? "none" : certificate->name;
  }
  std::optional<Verdict> verdict() const {
    return model_->trial() == nullptr ? std::nullopt : model_->trial()->verdict();
  }

  ScriptedSystem system_;
  int changes_ = 0;
  std::function<void()> when_changed_;  // what a view would do
  std::unique_ptr<WindowModel> model_;
};

}  // namespace kelvrin::app
