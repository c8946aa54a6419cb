#include "platform/linux/host/tool/log_view.h"

#include <cstdio>

namespace tokenhost {
namespace {

// What an extension logs last whatever the set-up failed with.
constexpr char kGeneralFailure[] = "Fehler beim Initialisieren.";

bool is_error(const oslog::Line& line) {
  return line.type == OS_LOG_TYPE_ERROR || line.type == OS_LOG_TYPE_FAULT;
}

// Line ends and tabs stay; other control characters shall not reach the terminal.
std::string harmless(std::string text) {
  for (char& c : text) {
    const auto code = static_cast<unsigned char>(c);
    if ((code < 0x20 && c != '\n' && c != '\t') || code == 0x7F) c = '?';
  }
  return text;
}

}  // namespace

LogView::LogView(Log log, bool show_private)
    : log_(log), show_private_(show_private ? oslog::ShowPrivate::kYes : oslog::ShowPrivate::kNo) {
  if (log_ == Log::kOff) return;
  oslog::set_sink([this](const oslog::Line& line) {
    if (log_ == Log::kDefault || is_error(line)) show(line);
  });
}

LogView::~LogView() { oslog::set_sink({}); }

void LogView::show_errors() const {
  if (log_ != Log::kOff) return;
  for (const oslog::Line& line : recorder_.lines()) {
    if (is_error(line)) show(line);
  }
}

std::optional<std::string> LogView::last_cause() const {
  std::optional<std::string> cause;
  for (const oslog::Line& line : recorder_.lines()) {
    if (!is_error(line) || (cause && line.format == kGeneralFailure)) continue;
    cause = line.text(show_private_);
    if (cause != line.private_text()) *cause += "; --show-private shows what is private";
  }
  return cause;
}

void LogView::show(const oslog::Line& line) const {
  std::fprintf(stderr, "log %s\n", harmless(line.typed_text(show_private_)).c_str());
}

}  // namespace tokenhost
