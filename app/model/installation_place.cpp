#include "app/model/installation_place.h"

#include <string.h>

namespace {

constexpr char kApplications[] = "/Applications/";

// Whether a text begins with a prefix of a length.
bool HasPrefix(const char* text, const char* prefix, size_t length) {
  return strncmp(text, prefix, length) == 0;
}

}  // namespace

bool IsInstallationPlace(const char* path, const char* home) {
  const size_t length = strlen(kApplications);
  if (HasPrefix(path, kApplications, length)) return true;
  if (home == nullptr || home[0] == '\0') return false;
  const size_t home_length = strlen(home);
  return HasPrefix(path, home, home_length) && HasPrefix(path + home_length, kApplications, length);
}
