// Reads and steers the unified log: for tests, and for the host that shows the lines. Everything
// here may be called from any thread.
#pragma once

#include <os/log.h>

#include <functional>
#include <string>
#include <vector>

#include "platform/linux/log/decoder.h"
#include "platform/linux/log/line.h"

namespace oslog {

// Keeps every line of the process, of all threads, that is written while it lives. Several may
// live at a time; each keeps all lines.
class Recorder {
 public:
  Recorder();
  ~Recorder();
  Recorder(const Recorder&) = delete;
  Recorder& operator=(const Recorder&) = delete;

  // Copies of the lines so far, in the order they were written.
  std::vector<Line> lines() const;
  // Their messages.
  std::vector<std::string> texts(ShowPrivate show = ShowPrivate::kYes) const;
  // Their messages, each after its type: "error: Keine Slots gefunden.".
  std::vector<std::string> typed_texts(ShowPrivate show = ShowPrivate::kYes) const;
  // Forgets the lines so far.
  void clear();

 private:
  friend void Deliver(const Line& line);
  std::vector<Line> lines_;
};

// Sets whether lines of a type are written; os_log_type_enabled answers the same. At the start all
// types are but debug.
void SetEnabled(os_log_type_t type, bool enabled);

// Turns a type off while it lives, and then back to what it was.
class Disabled {
 public:
  explicit Disabled(os_log_type_t type);
  ~Disabled();
  Disabled(const Disabled&) = delete;
  Disabled& operator=(const Disabled&) = delete;

 private:
  os_log_type_t type_;
  bool was_enabled_;
};

// Hands each line to the function as it is written, on the thread that writes it, one at a time; a
// line that the function itself writes is not handed to it. An empty function ends that: when
// SetSink returns, the function set before is not running and will not run. Not to be called from
// within a sink.
using Sink = std::function<void(const Line&)>;
void SetSink(Sink sink);

// Sets how "%@" arguments become text; null for their address. The Foundation side does this when
// it is loaded.
void SetObjectDescriber(ObjectDescriber describe);

}  // namespace oslog
