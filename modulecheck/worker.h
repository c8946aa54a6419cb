// The process in which a module is loaded and probed. It may end at any time, by whatever the
// module does: the program that started it goes on with the steps that are left.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kelvrin::modulecheck {

// The first argument of a program that is to be a worker.
inline constexpr std::string_view kWorkerArgument = "--worker";

struct WorkerOrder {
  std::string library;
  std::string reader_name;  // empty: none is configured
  bool log_in = false;      // the PIN is on standard input; else nothing there is read
  std::vector<std::string> steps;
};

// The arguments behind the program's name that make it a worker with this order, and the reverse.
std::vector<std::string> ToArguments(const WorkerOrder& order);
WorkerOrder ToOrder(const std::vector<std::string>& arguments);

// Does what the order says and talks on kChannelDescriptor. Its exit status says nothing.
[[noreturn]] void RunWorker(const WorkerOrder& order);

}  // namespace kelvrin::modulecheck
