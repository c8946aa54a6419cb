// The one login of a worker.
#pragma once

#include <optional>

#include "modulecheck/channel.h"
#include "modulecheck/judgement.h"
#include "modulecheck/module.h"
#include "modulecheck/secret.h"

namespace kelvrin::modulecheck {

// Logs in at most once, and not at all where the token says that its last try would be used up, or
// where it may be another card's PIN: of several readers none has the name that was given, or there
// are several cards and no name was.
class Login {
 public:
  // All must outlive the object.
  Login(const Module& module, const Channel& channel, Secret& pin)
      : module_(module), channel_(channel), pin_(pin) {}

  // Logs in the first time that it is called; always the same answer.
  const Judgement& Judge();
  bool is_tried() const { return judgement_.has_value(); }

 private:
  Judgement LogIn() const;

  const Module& module_;
  const Channel& channel_;
  Secret& pin_;
  std::optional<Judgement> judgement_;
};

}  // namespace kelvrin::modulecheck
