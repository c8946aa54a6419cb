// The whole run: the module as it is, and the module behind the adapter.
#pragma once

#include <chrono>
#include <string>

#include "modulecheck/report.h"
#include "modulecheck/secret.h"

namespace kelvrin::modulecheck {

struct CheckOrder {
  std::string program;  // this one
  std::string module;
  std::string adapter;           // the adapter's library; empty: there is none
  std::string reader_name;       // empty: none is configured
  bool through_adapter = false;  // list and judge the module behind the adapter
  std::string adapter_config;    // path of a file with further lines for it; empty: none
  std::chrono::seconds patience{60};
};

// `pin` is null when nobody is to log in. Throws Failure when nothing can be judged, and
// Interrupted.
Report Check(const CheckOrder& order, const Secret* pin);

}  // namespace kelvrin::modulecheck
