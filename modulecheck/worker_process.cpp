#include "modulecheck/worker_process.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <initializer_list>
#include <sstream>
#include <system_error>

#include "modulecheck/conclusion.h"
#include "modulecheck/text.h"
#include "modulecheck/worker.h"

// NOLINTNEXTLINE(readability-redundant-declaration): not every system's header has it
extern char** environ;

namespace kelvrin::modulecheck {
namespace {

using Clock = std::chrono::steady_clock;

// How often is looked whether the worker has ended.
constexpr int kGlanceMilliseconds = 20;

volatile std::sig_atomic_t noted_signal = 0;

void Note(int signal) { noted_signal = signal; }

[[noreturn]] void Fail(const std::string& what, int error) {
  throw Failure(what + ": " + std::generic_category().message(error), Conclusion::kNotJudged);
}

// A pipe's end with the PIN behind it, which is shorter than any pipe.
int PinPipe(const encoding::Secret* pin) {
  int ends[2];
  if (pipe(ends) != 0) Fail("no pipe can be made", errno);
  const bool is_written =
      pin == nullptr || write(ends[1], pin->bytes().data(), pin->bytes().size()) >= 0;
  close(ends[1]);
  if (!is_written) Fail("the PIN cannot be handed on", errno);
  return ends[0];
}

// A process that is killed, unless it was waited for, when the object goes.
class Child {
 public:
  explicit Child(pid_t process) : process_(process) {}
  ~Child() {
    if (process_ == -1) return;
    kill(process_, SIGKILL);
    int status = 0;
    while (waitpid(process_, &status, 0) < 0 && errno == EINTR) {
    }
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  bool HasEnded(int* status) {
    if (waitpid(process_, status, WNOHANG) != process_) return false;
    process_ = -1;
    return true;
  }

 private:
  pid_t process_;
};

pid_t Start(const std::string& program, std::vector<std::string> arguments,
            const encoding::Secret* pin, const std::string& document, const std::string& errors) {
  std::vector<char*> argv = {const_cast<char*>(program.c_str())};
  for (std::string& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);

  constexpr int kNew = O_WRONLY | O_CREAT | O_TRUNC | O_APPEND;
  constexpr mode_t kOwn = 0600;
  const int input = PinPipe(pin);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, errors.c_str(), kNew, kOwn);
  posix_spawn_file_actions_addopen(&actions, kDocumentDescriptor, document.c_str(), kNew, kOwn);
  pid_t process = -1;
  const int error = posix_spawn(&process, program.c_str(), &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(input);
  if (error != 0) Fail("the worker " + program + " cannot be started", error);
  return process;
}

std::string Describe(int status) {
  const bool is_signal = WIFSIGNALED(status);
  return "the module ended the process (" + std::string(is_signal ? "signal " : "exit status ") +
         std::to_string(is_signal ? WTERMSIG(status) : WEXITSTATUS(status)) + ")";
}

// How the worker ended: by itself, or with the time.
std::string Wait(Child child, Clock::time_point deadline) {
  int status = 0;
  while (!child.HasEnded(&status)) {
    if (noted_signal != 0) throw Interrupted{noted_signal};
    if (Clock::now() >= deadline) return "the time for it ran out";
    poll(nullptr, 0, kGlanceMilliseconds);
  }
  return Describe(status);
}

// The document in the last whole line; an empty one when there is none.
nlohmann::json LastDocument(const std::string& documents) {
  const std::size_t end = documents.rfind('\n');
  if (end == std::string::npos || end == 0) return nlohmann::json::object();
  const std::size_t start = documents.rfind('\n', end - 1) + 1;
  const std::string line = documents.substr(start, end - start);
  nlohmann::json document = nlohmann::json::parse(line, nullptr, false);
  return document.is_object() ? document : nlohmann::json::object();
}

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

WorkerResult RunWorkerProcess(const std::string& program, const std::vector<std::string>& arguments,
                              const encoding::Secret* pin, TemporaryFolder& folder,
                              Clock::time_point deadline) {
  const std::string document = folder.File("document");
  const std::string errors = folder.File("errors");
  WorkerResult result;
  result.ending = Wait(Child(Start(program, arguments, pin, document, errors)), deadline);
  result.document = LastDocument(ReadFile(document));
  if (result.document.value("step", "?").empty()) result.ending.clear();
  constexpr std::size_t kMost = 64 << 10;  // bytes that the report may repeat
  std::istringstream lines(ReadFile(errors).substr(0, kMost));
  for (std::string line; std::getline(lines, line);) result.errors.push_back(Printable(line));
  return result;
}

}  // namespace kelvrin::modulecheck
