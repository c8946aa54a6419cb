#include "app/model/installation_place.h"

namespace kelvrin::app {

bool IsInstallationPlace(const std::string& path, const std::string& home) {
  constexpr char kApplications[] = "/Applications/";
  return path.starts_with(kApplications) ||
         (!home.empty() && path.starts_with(home + kApplications));
}

}  // namespace kelvrin::app
