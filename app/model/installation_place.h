// Where the application may stay.
#pragma once

// Whether an application with this path lies in /Applications, or in the folder of that name in the
// user's own, `home`. That may be null.
bool IsInstallationPlace(const char* path, const char* home);
