#include "platform/linux/log/line.h"

namespace oslog {

bool Argument::IsVisible() const {
  if (privacy == Privacy::kUnspecified) return kind == Kind::kScalar;
  return privacy == Privacy::kPublic;
}

std::string Line::text(ShowPrivate show) const {
  std::string text = pieces.front();
  for (size_t i = 0; i < arguments.size(); ++i) {
    const bool shown = show == ShowPrivate::kYes || arguments[i].IsVisible();
    text += shown ? arguments[i].text : "<private>";
    text += pieces[i + 1];
  }
  return text;
}

std::string Line::typed_text(ShowPrivate show) const {
  return std::string(TypeName(type)) + ": " + text(show);
}

const char* TypeName(os_log_type_t type) {
  switch (type) {
    case OS_LOG_TYPE_DEFAULT:
      return "default";
    case OS_LOG_TYPE_INFO:
      return "info";
    case OS_LOG_TYPE_DEBUG:
      return "debug";
    case OS_LOG_TYPE_ERROR:
      return "error";
    case OS_LOG_TYPE_FAULT:
      return "fault";
    default:
      return "unknown";
  }
}

}  // namespace oslog
