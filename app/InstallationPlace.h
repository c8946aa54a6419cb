// Where the application may stay.
#ifndef KELVRIN_APP_INSTALLATIONPLACE_H_
#define KELVRIN_APP_INSTALLATIONPLACE_H_

// Whether an application with this path lies in /Applications, or in the folder of that name in the
// user's own, `home`. That may be null.
bool IsInstallationPlace(const char* path, const char* home);

#endif  // KELVRIN_APP_INSTALLATIONPLACE_H_
