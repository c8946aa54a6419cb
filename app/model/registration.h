// What pluginkit says of the extension.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "app/model/system.h"

namespace kelvrin::app {

struct Registration {
  bool is_known = false;           // pluginkit could be asked
  bool is_on = false;              // some copy is not switched off
  std::vector<std::string> paths;  // of every copy that is registered
};

// Asks for every copy, also of several versions.
Command ListExtensions();
// Have the system know a copy, and use it.
Command RegisterExtension(const std::string& path);
Command SwitchOnExtension(const std::string& extension_id);

// Reads pluginkit's list, of which the lines of other extensions are left out.
Registration ReadRegistration(const ProcessResult& result, std::string_view extension_id);

}  // namespace kelvrin::app
