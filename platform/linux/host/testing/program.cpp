#include "platform/linux/host/testing/program.h"

#include <fcntl.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>

#include "platform/linux/host/testing/text_files.h"

namespace host::testing {
namespace {

std::vector<char*> Pointers(std::vector<std::string>* arguments) {
  std::vector<char*> result;
  for (std::string& argument : *arguments) result.push_back(argument.data());
  result.push_back(nullptr);
  return result;
}

int WaitFor(pid_t child) {
  int status = 0;
  if (waitpid(child, &status, 0) != child || !WIFEXITED(status)) return -1;
  return WEXITSTATUS(status);
}

void Redirect(const char* path, int flags, int descriptor) {
  const int file = open(path, flags, 0600);
  if (file < 0 || dup2(file, descriptor) < 0) _exit(126);
  close(file);
}

}  // namespace

Outcome RunProgram(const std::vector<std::string>& arguments, const std::string& input) {
  const TemporaryFolder folder;
  const std::string names[] = {folder / "in", folder / "out", folder / "err"};
  WriteText(names[0], input);
  std::vector<std::string> copies = arguments;
  const std::vector<char*> argv = Pointers(&copies);
  const pid_t child = fork();
  if (child < 0) throw std::runtime_error("fork");
  if (child == 0) {
    setsid();
    Redirect(names[0].c_str(), O_RDONLY, STDIN_FILENO);
    Redirect(names[1].c_str(), O_WRONLY | O_CREAT, STDOUT_FILENO);
    Redirect(names[2].c_str(), O_WRONLY | O_CREAT, STDERR_FILENO);
    execv(argv[0], argv.data());
    _exit(127);
  }
  const int status = WaitFor(child);
  return {status, ReadText(names[1]), ReadText(names[2])};
}

Outcome RunOnTerminal(const std::vector<std::string>& arguments, const std::string& prompt,
                      const std::string& answer) {
  std::vector<std::string> copies = arguments;
  const std::vector<char*> argv = Pointers(&copies);
  int terminal = -1;
  const pid_t child = forkpty(&terminal, nullptr, nullptr, nullptr);
  if (child < 0) throw std::runtime_error("forkpty");
  if (child == 0) {
    execv(argv[0], argv.data());
    _exit(127);
  }
  Outcome outcome;
  bool answered = false;
  char buffer[4096];
  ssize_t count = 0;
  // The read fails when the program has closed its side.
  while ((count = read(terminal, buffer, sizeof(buffer))) > 0) {
    outcome.output.append(buffer, static_cast<size_t>(count));
    if (answered || !outcome.output.ends_with(prompt)) continue;
    answered = true;
    if (write(terminal, answer.data(), answer.size()) < 0) break;
  }
  close(terminal);
  outcome.status = WaitFor(child);
  return outcome;
}

}  // namespace host::testing
