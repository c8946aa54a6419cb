// Ending in good order when the user or the system says so.
#pragma once

namespace kelvrin::modulecheck {

// Thrown after a signal that asks the program to end.
struct Interrupted {
  int signal;
};

// From now on SIGINT, SIGTERM and SIGHUP are noted, except those that are ignored.
void NoteInterruptions();

// Throws Interrupted when one was noted.
void ThrowIfInterrupted();

// Ends the process by the signal, as it would have without NoteInterruptions.
[[noreturn]] void EndBy(int signal);

}  // namespace kelvrin::modulecheck
