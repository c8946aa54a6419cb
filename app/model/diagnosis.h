// The report: all that somebody who helps would ask for, in plain text.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "app/model/registration.h"
#include "app/model/situation.h"
#include "app/model/system.h"

namespace kelvrin::app {

struct Section {
  enum class Kind { kSignature, kRegistration, kReaders, kTokens, kModule, kLog };
  Kind kind;
  std::string command;  // what was run, as one would type it; empty where nothing was
  std::string text;     // as plain as it came, or nothing where the program gave none
  ProcessResult::End end = ProcessResult::End::kExited;
  int status = 0;
};

class Diagnosis {
 public:
  // Begins at once. `changed` is called, after the constructor, whenever the rest has changed.
  // Both outlive it. Letting go of it ends what it has started.
  Diagnosis(System* system, std::function<void()> changed);

  // How many of the programs have ended, of how many.
  size_t done() const { return sections_.size(); }
  size_t count() const { return commands_.size(); }
  bool is_complete() const { return done() == count(); }
  // What the programs said, in order.
  const std::vector<Section>& sections() const { return sections_; }

 private:
  struct Step {
    Section::Kind kind;
    Command command;
  };
  void RunNext();

  System* system_;
  std::function<void()> changed_;
  std::vector<Step> commands_;
  std::vector<Section> sections_;
  TaskPointer task_;
};

}  // namespace kelvrin::app
