// The system, over Apple's frameworks.
#pragma once

#include "app/model/system.h"

#ifdef __OBJC__
@class NSBundle, PresenceObserver;
#endif

namespace kelvrin::app {

class AppleSystem : public System {
 public:
  explicit AppleSystem(NSBundle *application);
  ~AppleSystem() override;
  AppleSystem(const AppleSystem &) = delete;
  AppleSystem &operator=(const AppleSystem &) = delete;

  const Installation &installation() const override { return installation_; }
  Time Now() const override;
  Presence Look() override;
  void OnChange(std::function<void()> changed) override;
  TaskPointer ReadCertificates(const std::string &token_id,
                               std::function<void(std::vector<Certificate>)> done) override;
  TaskPointer Try(const Certificate &certificate, Scheme scheme,
                  std::function<void(Attempt)> done) override;
  TaskPointer Run(const Command &command, std::function<void(ProcessResult)> done) override;
  TaskPointer After(int seconds, std::function<void()> done) override;

 private:
  Installation installation_;
  PresenceObserver *observer_;  // owned
};

}  // namespace kelvrin::app
