#include "modulecheck/worker_process.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <sstream>
#include <system_error>

#include "modulecheck/conclusion.h"
#include "modulecheck/descriptor.h"
#include "modulecheck/interruption.h"
#include "modulecheck/text.h"
#include "modulecheck/worker.h"

// NOLINTNEXTLINE(readability-redundant-declaration): not every system's header has it
extern char** environ;

namespace kelvrin::modulecheck {
namespace {

using Clock = std::chrono::steady_clock;

// A process that ended may leave children that hold its pipes open: it is looked after this often.
constexpr int kGlanceMilliseconds = 50;
constexpr std::size_t kMaxErrorText = 65536;
constexpr std::size_t kMaxDocument = std::size_t{16} * 1024 * 1024;
// Descriptors from here on are nobody's standard streams.
constexpr int kFirstDescriptor = 10;

[[noreturn]] void Fail(const std::string& what, int error) {
  throw Failure(what + ": " + std::generic_category().message(error), Conclusion::kNotJudged);
}

Descriptor MoveUp(int descriptor) {
  const Descriptor old(descriptor);
  Descriptor moved(fcntl(descriptor, F_DUPFD_CLOEXEC, kFirstDescriptor));
  if (moved.get() < 0) Fail("no more files can be opened", errno);
  return moved;
}

struct Pipe {
  Pipe() {
    int ends[2];
    if (pipe(ends) != 0) Fail("no pipe can be made", errno);
    read = MoveUp(ends[0]);
    write = MoveUp(ends[1]);
  }
  Descriptor read;
  Descriptor write;
};

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

pid_t Start(const std::string& program, std::vector<std::string> arguments, int input, int document,
            int errors) {
  std::vector<char*> argv = {const_cast<char*>(program.c_str())};
  for (std::string& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, errors, STDERR_FILENO);
  posix_spawn_file_actions_adddup2(&actions, document, kDocumentDescriptor);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t usual;
  sigemptyset(&usual);
  sigaddset(&usual, SIGPIPE);
  posix_spawnattr_setsigdefault(&attributes, &usual);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
  pid_t process = -1;
  const int error =
      posix_spawn(&process, program.c_str(), &actions, &attributes, argv.data(), environ);
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) Fail("the worker " + program + " cannot be started", error);
  return process;
}

// Appends what there is to be read, 1 MiB at most. A pipe that has no more to give is closed, so
// that poll does not report it for ever.
void Drain(Descriptor* descriptor, std::string* text) {
  char buffer[4096];
  for (int i = 0; i < 256 && descriptor->get() >= 0; ++i) {
    const ssize_t count = read(descriptor->get(), buffer, sizeof(buffer));
    if (count > 0) {
      text->append(buffer, static_cast<std::size_t>(count));
    } else if (count == 0 || (errno != EINTR && errno != EAGAIN)) {
      descriptor->Close();
    } else if (errno == EAGAIN) {
      return;
    }
  }
}

// Forgets all documents but the last whole one, and what began behind it.
void KeepLast(std::string* documents) {
  const std::size_t end = documents->rfind('\n');
  if (end == std::string::npos || end == 0) return;
  const std::size_t before = documents->rfind('\n', end - 1);
  if (before != std::string::npos) documents->erase(0, before + 1);
}

// The document in the last whole line; null when there is none.
nlohmann::json Parse(const std::string& documents) {
  const std::size_t end = documents.rfind('\n');
  if (end == std::string::npos) return nullptr;
  nlohmann::json document = nlohmann::json::parse(documents.substr(0, end), nullptr, false);
  return document.is_object() ? document : nlohmann::json();
}

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(Printable(line));
  return lines;
}

std::string Describe(int status) {
  const bool is_signal = WIFSIGNALED(status);
  return "the module ended the process (" + std::string(is_signal ? "signal " : "exit status ") +
         std::to_string(is_signal ? WTERMSIG(status) : WEXITSTATUS(status)) + ")";
}

}  // namespace

WorkerResult RunWorkerProcess(const std::string& program, const std::vector<std::string>& arguments,
                              const encoding::Secret* pin, Clock::time_point deadline) {
  Pipe input;
  Pipe document;
  Pipe errors;
  for (const Descriptor* end : {&document.read, &errors.read}) {
    fcntl(end->get(), F_SETFL, O_NONBLOCK);
  }
  Child child(
      Start(program, arguments, input.read.get(), document.write.get(), errors.write.get()));
  for (Descriptor* end : {&input.read, &document.write, &errors.write}) end->Close();
  // A PIN is shorter than any pipe. A worker that has ended already does not take it.
  if (pin != nullptr && write(input.write.get(), pin->bytes().data(), pin->bytes().size()) < 0 &&
      errno != EPIPE) {
    Fail("the worker cannot be reached", errno);
  }
  input.write.Close();

  WorkerResult result;
  std::string documents;
  std::string error_text;
  int status = 0;
  while (result.ending.empty()) {
    ThrowIfInterrupted();
    if (child.HasEnded(&status)) {
      result.ending = Describe(status);
    } else if (Clock::now() >= deadline || documents.size() > kMaxDocument) {
      result.ending = "the time for it ran out";
    } else {
      pollfd polled[] = {{document.read.get(), POLLIN, 0}, {errors.read.get(), POLLIN, 0}};
      poll(polled, 2, kGlanceMilliseconds);
    }
    Drain(&document.read, &documents);
    KeepLast(&documents);
    Drain(&errors.read, &error_text);
    if (error_text.size() > kMaxErrorText) error_text.erase(0, error_text.size() - kMaxErrorText);
  }
  result.document = Parse(documents);
  result.errors = Lines(error_text);
  const bool is_done = result.document.is_object() && result.document.value("step", "?").empty();
  if (is_done) result.ending.clear();
  return result;
}

}  // namespace kelvrin::modulecheck
