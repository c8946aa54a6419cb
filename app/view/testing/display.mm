#import "app/view/testing/display.h"

#import <Cocoa/Cocoa.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>
#include <string>

namespace {

// Becomes the X server, which writes the number of a free display to a descriptor.
void BecomeServer(int descriptor) {
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  const std::string number = std::to_string(descriptor);
  execlp("Xvfb", "Xvfb", "-displayfd", number.c_str(), "-screen", "0", "1280x1024x24", "-nolisten",
         "tcp", nullptr);
  _exit(127);
}

}  // namespace

Display::Display() {
  int ends[2];
  if (pipe(ends) != 0) throw std::runtime_error("no pipe for the X server");
  server_ = fork();
  if (server_ == 0) BecomeServer(ends[1]);
  close(ends[1]);
  FILE *numbers = fdopen(ends[0], "r");
  int number = 0;
  const bool has_started = fscanf(numbers, "%d", &number) == 1;
  fclose(numbers);
  if (!has_started) throw std::runtime_error("Xvfb did not start; is the package xvfb there?");
  setenv("DISPLAY", (":" + std::to_string(number)).c_str(), 1);
  // Scrollers on the right, as on macOS.
  [[NSUserDefaults standardUserDefaults]
      registerDefaults:@{@"NSInterfaceStyleDefault" : @"NSMacintoshInterfaceStyle"}];
  [[NSApplication sharedApplication] finishLaunching];
  [NSApp activateIgnoringOtherApps:YES];
}

Display::~Display() {
  kill(server_, SIGTERM);
  waitpid(server_, nullptr, 0);
}
