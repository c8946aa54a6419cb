#include "app/model/registration.h"

#include <sstream>

namespace kelvrin::app {
namespace {

constexpr char kPluginkit[] = "/usr/bin/pluginkit";
constexpr char kNone[] = "(no matches)";

// Whether a line is about an extension: a mark, blanks, then `id(version)`.
bool IsAbout(std::string_view line, std::string_view extension_id) {
  const size_t place = line.find(extension_id);
  if (place == std::string_view::npos || place == 0) return false;
  const char before = line[place - 1];
  const size_t end = place + extension_id.size();
  return before == ' ' && end < line.size() && line[end] == '(';
}

// The path is the last of the columns, which tabs separate.
std::string PathIn(const std::string& line) {
  const size_t tab = line.rfind('\t');
  return tab == std::string::npos ? "" : line.substr(tab + 1);
}

}  // namespace

Command ListExtensions() {
  return {kPluginkit, {"-m", "-A", "-D", "-v", "-p", "com.apple.ctk-tokens"}};
}

Command RegisterExtension(const std::string& path) { return {kPluginkit, {"-a", path}}; }

Command SwitchOnExtension(const std::string& extension_id) {
  return {kPluginkit, {"-e", "use", "-i", extension_id}};
}

Registration ReadRegistration(const ProcessResult& result, std::string_view extension_id) {
  Registration registration;
  // Its last line counts what it found; that nothing was found may be a failure to it.
  registration.is_known = result.end == ProcessResult::End::kExited &&
                          (result.status == 0 || result.output.find(kNone) != std::string::npos);
  std::istringstream lines(result.output);
  for (std::string line; std::getline(lines, line);) {
    if (!IsAbout(line, extension_id)) continue;
    registration.paths.push_back(PathIn(line));
    if (line.front() != '-') registration.is_on = true;
  }
  return registration;
}

}  // namespace kelvrin::app
