#include "token/testing/timeline.h"

#include <utility>

#include "platform/linux/log/log_recorder.h"

namespace token_testing {

Timeline::Timeline(scripted::ScriptedModule& module) : module_(module) {
  module_.Observe([this](const scripted::Call& call) { Note(call.Text()); });
  oslog::SetSink([this](const oslog::Line& line) { Note(line.typed_text()); });
}

Timeline::~Timeline() {
  oslog::SetSink({});
  module_.Observe({});
}

std::vector<std::string> Timeline::Take() { return std::exchange(events_, {}); }

}  // namespace token_testing
