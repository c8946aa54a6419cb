#include "modulecheck/interruption.h"

#include <csignal>
#include <cstdlib>
#include <initializer_list>

namespace kelvrin::modulecheck {
namespace {

volatile std::sig_atomic_t noted = 0;

void Note(int signal) { noted = signal; }

}  // namespace

void NoteInterruptions() {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction action = {};
    if (sigaction(signal, nullptr, &action) != 0 || action.sa_handler == SIG_IGN) continue;
    action = {};
    action.sa_handler = Note;
    sigaction(signal, &action, nullptr);
  }
}

void ThrowIfInterrupted() {
  if (noted != 0) throw Interrupted{noted};
}

void EndBy(int signal) {
  std::signal(signal, SIG_DFL);
  std::raise(signal);
  std::abort();  // not reached: the signal was not blocked
}

}  // namespace kelvrin::modulecheck
