// A desk with the application on it, as macOS would have it: installed, its extension hosted,
// readers and cards at hand.
#pragma once

#import <Foundation/Foundation.h>

#include <filesystem>
#include <memory>
#include <string>

#include "platform/linux/host/desktop.h"

namespace window {

// The name that the bundle's configuration has for its reader.
inline constexpr char kReader[] = "Kelvrin Reader";

// Puts the built application together in home/Applications of a folder, anew, and makes that home
// this process's. Returns the application's path.
std::filesystem::path Install(const std::filesystem::path &folder);

// One at a time in a process.
class Desk {
 public:
  // `application` has been installed; `pin` answers the system's question for the PIN. Ends the
  // process when the extension cannot be loaded. The main bundle is the extension's from now on,
  // since the extension runs in this process.
  Desk(const std::filesystem::path &application, host::PinSource pin);
  ~Desk();
  Desk(const Desk &) = delete;
  Desk &operator=(const Desk &) = delete;

  NSBundle *bundle() const { return bundle_; }
  host::Desktop &desktop() { return *desktop_; }

 private:
  NSBundle *bundle_;  // the application's; owned
  std::unique_ptr<host::Desktop> desktop_;
};

}  // namespace window
