#include "modulecheck/worker_process.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <system_error>

#include "modulecheck/channel.h"
#include "modulecheck/failure.h"
#include "modulecheck/interruption.h"
#include "modulecheck/text.h"

// NOLINTNEXTLINE(readability-redundant-declaration): not every system's header has it
extern char** environ;

namespace kelvrin::modulecheck {
namespace {

using Clock = std::chrono::steady_clock;

// A process that ended may leave children that hold its pipes open: it is looked after this often.
constexpr std::chrono::milliseconds kGlance{50};
constexpr std::size_t kMaxErrorText = 65536;
constexpr std::size_t kMaxMessage = std::size_t{16} * 1024 * 1024;
// Descriptors from here on are nobody's standard streams.
constexpr int kFirstDescriptor = 10;

[[noreturn]] void Fail(const std::string& what, int error) {
  throw Failure(what + ": " + std::generic_category().message(error));
}

Descriptor MoveUp(int descriptor) {
  const Descriptor old(descriptor);
  Descriptor moved(fcntl(descriptor, F_DUPFD_CLOEXEC, kFirstDescriptor));
  if (moved.get() < 0) Fail("no more files can be opened", errno);
  return moved;
}

struct Pipe {
  Descriptor read;
  Descriptor write;
};

Pipe MakePipe() {
  int ends[2];
  if (pipe(ends) != 0) Fail("no pipe can be made", errno);
  Pipe made;
  made.read = MoveUp(ends[0]);
  made.write = MoveUp(ends[1]);
  return made;
}

// Reads what there is; whether there may be more later.
bool Drain(const Descriptor& descriptor, std::string* text) {
  char buffer[4096];
  for (;;) {
    const ssize_t count = read(descriptor.get(), buffer, sizeof(buffer));
    if (count > 0) {
      text->append(buffer, static_cast<std::size_t>(count));
    } else if (count == 0) {
      return false;
    } else if (errno != EINTR) {
      return errno == EAGAIN;
    }
  }
}

std::string Describe(int status) {
  if (WIFSIGNALED(status)) {
    return "the module ended the process (signal " + std::to_string(WTERMSIG(status)) + ")";
  }
  return "the module ended the process (exit status " + std::to_string(WEXITSTATUS(status)) + ")";
}

}  // namespace

WorkerProcess::WorkerProcess(const std::string& program, const std::vector<std::string>& arguments,
                             const Secret* pin) {
  Pipe input = MakePipe();
  Pipe channel = MakePipe();
  Pipe errors = MakePipe();
  for (const Descriptor* end : {&channel.read, &errors.read}) {
    fcntl(end->get(), F_SETFL, O_NONBLOCK);
  }
  Start(program, arguments, input.read.get(), channel.write.get(), errors.write.get());
  channel_ = std::move(channel.read);
  errors_ = std::move(errors.read);
  if (pin == nullptr) return;
  // A PIN is shorter than any pipe. A worker that has ended already does not take it.
  if (write(input.write.get(), pin->bytes().data(), pin->bytes().size()) < 0 && errno != EPIPE) {
    Fail("the worker cannot be reached", errno);
  }
}

void WorkerProcess::Start(const std::string& program, const std::vector<std::string>& arguments,
                          int input, int channel, int errors) {
  std::vector<std::string> copies = arguments;
  std::vector<char*> argv = {const_cast<char*>(program.c_str())};
  for (std::string& argument : copies) argv.push_back(argument.data());
  argv.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, errors, STDERR_FILENO);
  posix_spawn_file_actions_adddup2(&actions, channel, kChannelDescriptor);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t usual;
  sigemptyset(&usual);
  sigaddset(&usual, SIGPIPE);
  posix_spawnattr_setsigdefault(&attributes, &usual);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
  const int error =
      posix_spawn(&process_, program.c_str(), &actions, &attributes, argv.data(), environ);
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) {
    process_ = -1;
    Fail("the worker " + program + " cannot be started", error);
  }
}

WorkerProcess::~WorkerProcess() { End(); }

std::optional<nlohmann::json> WorkerProcess::Next(std::chrono::milliseconds patience) {
  const Clock::time_point deadline = Clock::now() + patience;
  while (process_ != -1) {
    if (auto message = TakeMessage()) return message;
    ThrowIfInterrupted();
    if (HasEnded()) break;
    if (Clock::now() >= deadline || received_.size() > kMaxMessage) {
      End();
      const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(patience).count();
      ending_ =
          "the module did not answer for " + Counted(static_cast<std::size_t>(seconds), "second");
      return std::nullopt;
    }
    pollfd polled[] = {{channel_.get(), POLLIN, 0}, {errors_.get(), POLLIN, 0}};
    poll(polled, 2, static_cast<int>(kGlance.count()));
    Read();
  }
  return TakeMessage();
}

std::optional<nlohmann::json> WorkerProcess::TakeMessage() {
  for (;;) {
    const std::size_t end = received_.find('\n');
    if (end == std::string::npos) return std::nullopt;
    nlohmann::json message = nlohmann::json::parse(
        received_.begin(), received_.begin() + static_cast<long>(end), nullptr, false);
    received_.erase(0, end + 1);
    if (message.is_object()) return message;
  }
}

// A pipe that has no more to give is closed, so that poll does not report it for ever.
void WorkerProcess::Read() {
  if (channel_.get() >= 0 && !Drain(channel_, &received_)) channel_.Close();
  if (errors_.get() >= 0 && !Drain(errors_, &error_text_)) errors_.Close();
  if (error_text_.size() > kMaxErrorText) {
    error_text_.erase(0, error_text_.size() - kMaxErrorText);
  }
}

bool WorkerProcess::HasEnded() {
  int status = 0;
  const pid_t waited = waitpid(process_, &status, WNOHANG);
  if (waited == 0 || (waited < 0 && errno == EINTR)) return false;
  process_ = -1;
  Read();
  ending_ = Describe(status);
  return true;
}

void WorkerProcess::End() {
  if (process_ == -1) return;
  kill(process_, SIGKILL);
  int status = 0;
  while (waitpid(process_, &status, 0) < 0 && errno == EINTR) {
  }
  process_ = -1;
}

std::string WorkerProcess::LastError() const {
  std::string_view text = error_text_;
  while (!text.empty() && text.back() == '\n') text.remove_suffix(1);
  const std::size_t before = text.rfind('\n');
  return Printable(before == std::string_view::npos ? text : text.substr(before + 1));
}

}  // namespace kelvrin::modulecheck
