// A display of the tests' own.
#pragma once

#include <sys/types.h>

// Runs an X server without a screen, and makes the application that draws there. Ends the server
// when it is let go of, or when the process ends otherwise.
class Display {
 public:
  Display();
  ~Display();
  Display(const Display&) = delete;
  Display& operator=(const Display&) = delete;

 private:
  pid_t server_ = 0;
};
