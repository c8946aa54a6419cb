// What is kept and handed on of the log, and the entry points that <os/log.h> declares.
#include "platform/linux/log/log_recorder.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <mutex>
#include <utility>

#include "platform/linux/log/decoder.h"

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
std::vector<Recorder*>& Recorders() {
  static auto* const all = new std::vector<Recorder*>;
  return *all;
}

Sink& TheSink() {
  static auto* const the_sink = new Sink;
  return *the_sink;
}

uint32_t TypeBit(os_log_type_t type) { return 1U << (type & 31U); }

bool IsEnabled(os_log_type_t type) {
  return (enabled_types.load(std::memory_order_relaxed) & TypeBit(type)) != 0;
}

// No line goes to any other object, which would be a mistake.
bool IsEnabled(os_log_t log, os_log_type_t type) {
  return log == OS_LOG_DEFAULT && IsEnabled(type);
}

}  // namespace

void SetObjectDescriber(ObjectDescriber describe) { describer.store(describe); }

void SetEnabled(os_log_type_t type, bool enabled) {
  if (enabled) {
    enabled_types.fetch_or(TypeBit(type));
  } else {
    enabled_types.fetch_and(~TypeBit(type));
  }
}

// Hands a line to the recorders and the sink.
void Deliver(const Line& line) {
  {
    const std::lock_guard lock(recorders_mutex);
    for (Recorder* recorder : Recorders()) recorder->lines_.push_back(line);
  }
  if (in_sink) return;
  const std::lock_guard lock(sink_mutex);
  if (!TheSink()) return;
  in_sink = true;
  TheSink()(line);
  in_sink = false;
}

void SetSink(Sink new_sink) {
  const std::lock_guard lock(sink_mutex);
  listeners += static_cast<int>(new_sink != nullptr) - static_cast<int>(TheSink() != nullptr);
  TheSink() = std::move(new_sink);
}

Recorder::Recorder() {
  const std::lock_guard lock(recorders_mutex);
  Recorders().push_back(this);
  ++listeners;
}

Recorder::~Recorder() {
  const std::lock_guard lock(recorders_mutex);
  std::erase(Recorders(), this);
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

Disabled::Disabled(os_log_type_t type) : type_(type), was_enabled_(IsEnabled(type)) {
  SetEnabled(type, false);
}

Disabled::~Disabled() { SetEnabled(type_, was_enabled_); }

}  // namespace oslog

struct os_log_s {};
struct os_log_s _os_log_default;

bool os_log_type_enabled(os_log_t log, os_log_type_t type) { return oslog::IsEnabled(log, type); }

// Without a listener a line costs one relaxed load, and is not even decoded.
void _os_log_impl(void* /*dso*/, os_log_t log, os_log_type_t type, const char* format,
                  uint8_t* buffer, uint32_t size) {
  const int error = errno;
  if (oslog::listeners.load(std::memory_order_relaxed) == 0 || !oslog::IsEnabled(log, type)) return;
  oslog::Deliver(oslog::Decode(type, format, buffer, size, oslog::describer.load()));
  errno = error;
}
