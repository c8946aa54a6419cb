#include "platform/linux/host/tool/log_view.h"

#include <cstdio>

#include "platform/linux/host/tool/listing.h"

namespace tokenhost {
namespace {

bool IsError(const oslog::Line& line) {
  return line.type == OS_LOG_TYPE_ERROR || line.type == OS_LOG_TYPE_FAULT;
}

// What the extension logs last whatever a set-up or a login failed with.
bool IsGeneral(const oslog::Line& line) {
  return line.format == "Fehler beim Initialisieren." ||
         line.format == "PIN kann NICHT verifiziert werden.";
}

}  // namespace

LogView::LogView(Log log, bool show_private)
    : log_(log), show_private_(show_private ? oslog::ShowPrivate::kYes : oslog::ShowPrivate::kNo) {
  if (log_ == Log::kOff) return;
  oslog::SetSink([this](const oslog::Line& line) {
    if (log_ == Log::kDefault || IsError(line)) Show(line);
  });
}

LogView::~LogView() { oslog::SetSink({}); }

void LogView::ShowErrors() const {
  if (log_ != Log::kOff) return;
  for (const oslog::Line& line : recorder_.lines()) {
    if (IsError(line)) Show(line);
  }
}

std::optional<std::string> LogView::LastCause() const {
  std::optional<std::string> cause;
  for (const oslog::Line& line : recorder_.lines()) {
    if (!IsError(line) || (cause && IsGeneral(line))) continue;
    cause = line.text(show_private_);
    if (cause != line.private_text()) *cause += "; --show-private shows what is private";
  }
  return cause;
}

void LogView::Show(const oslog::Line& line) const {
  std::fprintf(stderr, "log %s\n", Printable(line.typed_text(show_private_), "\n\t").c_str());
}

}  // namespace tokenhost
