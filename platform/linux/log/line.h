// One line of the unified log, as its reader sees it.
#pragma once

#include <os/log.h>

#include <string>
#include <vector>

namespace oslog {

// What the format says about an argument's visibility.
enum class Privacy { kUnspecified, kPrivate, kPublic };

enum class Kind { kScalar, kString, kObject };

struct Argument {
  Privacy privacy = Privacy::kUnspecified;
  Kind kind = Kind::kScalar;
  std::string text;  // formatted as the conversion asks, whatever the privacy

  // Whether a stock system shows the argument: numbers unless marked private, anything else only
  // when marked public.
  bool IsVisible() const;
};

enum class ShowPrivate { kNo, kYes };

struct Line {
  os_log_type_t type = OS_LOG_TYPE_DEFAULT;
  std::string format;  // as written in the source
  std::vector<Argument> arguments;
  // The text around the arguments: one piece more than there are arguments.
  std::vector<std::string> pieces = {""};

  // The line's message; an argument that is not shown reads "<private>".
  std::string text(ShowPrivate show = ShowPrivate::kNo) const;
  // The line's message with every argument shown.
  std::string private_text() const { return text(ShowPrivate::kYes); }
  // The message after its type and ": ".
  std::string typed_text(ShowPrivate show = ShowPrivate::kYes) const;
};

// "default", "info", "debug", "error" or "fault"; "unknown" for any other value.
const char* TypeName(os_log_type_t type);

}  // namespace oslog
