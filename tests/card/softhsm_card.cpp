#include "softhsm_card.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>

namespace kelvrin {
namespace {

namespace fs = std::filesystem;

[[noreturn]] void Fail(const std::string& what) { throw std::runtime_error(what); }

std::string Contents(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) Fail("cannot read " + path.string());
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// A sanitizer's preloaded runtime is no business of the tools the card maker runs.
std::vector<char*> EnvironmentWithoutPreload() {
  std::vector<char*> result;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    if (std::string_view(*entry).substr(0, 11) != "LD_PRELOAD=") result.push_back(*entry);
  }
  result.push_back(nullptr);
  return result;
}

// Runs a program with both its outputs in the file `log`; 0 when it ended with exit status 0.
int Run(std::vector<std::string> arguments, const fs::path& log) {
  std::vector<char*> argv;
  argv.reserve(arguments.size() + 1);
  for (std::string& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, log.c_str(),
                                   O_WRONLY | O_CREAT | O_TRUNC, 0600);
  posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
  pid_t child = 0;
  const int error = posix_spawn(&child, argv[0], &actions, nullptr, argv.data(),
                                EnvironmentWithoutPreload().data());
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) Fail(arguments[0] + ": " + std::generic_category().message(error));
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

fs::path MakeDirectory() {
  std::string name = (fs::temp_directory_path() / "kelvrin-card.XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) Fail("cannot make a temporary folder");
  return name;
}

}  // namespace

SoftHsmCard::SoftHsmCard(const CardOptions& options)
    : options_(options), directory_(MakeDirectory()) {
  try {
    Add(options);
  } catch (...) {
    std::error_code ignored;
    fs::remove_all(directory_, ignored);
    throw;
  }
  setenv("SOFTHSM2_CONF", configuration().c_str(), 1);
}

SoftHsmCard::~SoftHsmCard() {
  unsetenv("SOFTHSM2_CONF");
  std::error_code ignored;
  fs::remove_all(directory_, ignored);
}

void SoftHsmCard::Add(const CardOptions& options) {
  const fs::path pin_file = directory_ / "maker.pin";
  const fs::path log = directory_ / "maker.log";
  std::ofstream(pin_file) << options.pin << '\n';
  std::vector<std::string> arguments = {KELVRIN_MAKE_CARD, directory_.string(), "--name",
                                        options.name,      "--label",           options.label,
                                        "--pin-file",      pin_file.string()};
  if (options.empty) arguments.emplace_back("--empty");
  if (options.lone_certificate) arguments.emplace_back("--lone-cert");
  if (options.extra_certificates != 0) {
    arguments.emplace_back("--extra-certs");
    arguments.push_back(std::to_string(options.extra_certificates));
  }
  const int status = Run(arguments, log);
  fs::remove(pin_file);
  if (status != 0) Fail("make-card failed: " + Contents(log));
}

std::vector<std::uint8_t> SoftHsmCard::Read(const std::string& file) const {
  const std::string contents = Contents(File(file));
  return {contents.begin(), contents.end()};
}

fs::path SoftHsmCard::Module() {
  for (const char* path :
       {"/usr/lib/softhsm/libsofthsm2.so", "/usr/lib/x86_64-linux-gnu/softhsm/libsofthsm2.so",
        "/usr/lib/aarch64-linux-gnu/softhsm/libsofthsm2.so",
        "/usr/local/lib/softhsm/libsofthsm2.so"}) {
    if (fs::exists(path)) return path;
  }
  Fail("SoftHSM is not installed (package softhsm2)");
}

}  // namespace kelvrin
