// Where the application may stay.
#pragma once

#include <string>

namespace kelvrin::app {

// Whether an application with this path lies in /Applications, or in the folder of that name in the
// user's own, `home`. That may be empty.
bool IsInstallationPlace(const std::string& path, const std::string& home);

}  // namespace kelvrin::app
