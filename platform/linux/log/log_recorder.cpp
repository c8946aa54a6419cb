#include "platform/linux/log/log_recorder.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <utility>

#include "platform/linux/log/delivery.h"

namespace oslog {
namespace {

// Constant-initialised, so that lines may be written before and after main.
std::atomic<uint32_t> enabled_types = ~(1U << OS_LOG_TYPE_DEBUG);
std::atomic<int> listeners = 0;
std::atomic<ObjectDescriber> describer = nullptr;
std::mutex recorders_mutex;  // guards the recorders and their lines
std::mutex sink_mutex;       // held while the sink runs
thread_local bool in_sink = false;

// Never destroyed, for the same reason.
std::vector<Recorder*>& recorders() {
  static auto* const all = new std::vector<Recorder*>;
  return *all;
}

Sink& sink() {
  static auto* const the_sink = new Sink;
  return *the_sink;
}

uint32_t type_bit(os_log_type_t type) { return 1U << (type & 31U); }

}  // namespace

bool has_listeners() { return listeners.load(std::memory_order_relaxed) != 0; }

bool is_enabled(os_log_type_t type) {
  return (enabled_types.load(std::memory_order_relaxed) & type_bit(type)) != 0;
}

ObjectDescriber object_describer() { return describer.load(); }

void set_object_describer(ObjectDescriber describe) { describer.store(describe); }

void set_enabled(os_log_type_t type, bool enabled) {
  if (enabled) {
    enabled_types.fetch_or(type_bit(type));
  } else {
    enabled_types.fetch_and(~type_bit(type));
  }
}

void deliver(const Line& line) {
  {
    const std::lock_guard lock(recorders_mutex);
    for (Recorder* recorder : recorders()) recorder->lines_.push_back(line);
  }
  if (in_sink) return;
  const std::lock_guard lock(sink_mutex);
  if (!sink()) return;
  in_sink = true;
  sink()(line);
  in_sink = false;
}

void set_sink(Sink new_sink) {
  const std::lock_guard lock(sink_mutex);
  listeners += static_cast<int>(new_sink != nullptr) - static_cast<int>(sink() != nullptr);
  sink() = std::move(new_sink);
}

Recorder::Recorder() {
  const std::lock_guard lock(recorders_mutex);
  recorders().push_back(this);
  ++listeners;
}

Recorder::~Recorder() {
  const std::lock_guard lock(recorders_mutex);
  std::erase(recorders(), this);
  --listeners;
}

std::vector<Line> Recorder::lines() const {
  const std::lock_guard lock(recorders_mutex);
  return lines_;
}

std::vector<std::string> Recorder::texts(ShowPrivate show) const {
  std::vector<std::string> texts;
  for (const Line& line : lines()) texts.push_back(line.text(show));
  return texts;
}

std::vector<std::string> Recorder::typed_texts(ShowPrivate show) const {
  std::vector<std::string> texts;
  for (const Line& line : lines()) texts.push_back(line.typed_text(show));
  return texts;
}

void Recorder::clear() {
  const std::lock_guard lock(recorders_mutex);
  lines_.clear();
}

Disabled::Disabled(os_log_type_t type) : type_(type), was_enabled_(is_enabled(type)) {
  set_enabled(type, false);
}

Disabled::~Disabled() { set_enabled(type_, was_enabled_); }

}  // namespace oslog
