// The process in which a module is loaded and probed. It may end at any time, by whatever the
// module does.
//
// It writes one JSON document, anew in a line of its own at the start of every step, so that the
// last whole line says what was found and which step was under way when it ended:
//   {"step": NAME, "failure": TEXT, "listing": {...}, "results": {NAME: Judgement},
//    "warnings": [TEXT], "login": "none" | "tried" | "accepted" | "over",
//    "notJudged": {"reason": "no-card" | "wrong-pin" | "login-withheld" | "card-pulled",
//                  "text": TEXT}}
// "failure" and "notJudged" are there only where they apply. The step is empty at the end.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kelvrin::modulecheck {

// The first argument of a program that is to be a worker.
inline constexpr std::string_view kWorkerArgument = "--worker";
// The descriptor on which it writes.
inline constexpr int kDocumentDescriptor = 3;
// The step before the first expectation's.
inline constexpr std::string_view kBringUpStep = "bring-up";

struct WorkerOrder {
  std::string library = {};
  std::string reader_name = {};  // empty: none is configured
  bool log_in = false;           // the PIN is on standard input; else nothing there is read
  bool is_adapter = false;       // the library is an adapter in front of the module
  bool derives = false;          // key agreement is tried
  std::string serial = {};  // with the label: the token that the PIN belongs to; empty: not known
  std::string label = {};
};

// The arguments behind the program's name that make it a worker with this order, and the reverse.
std::vector<std::string> ToArguments(const WorkerOrder& order);
WorkerOrder ToOrder(const std::vector<std::string>& arguments);

// Does what the order says. Its exit status says nothing.
[[noreturn]] void RunWorker(const WorkerOrder& order);

}  // namespace kelvrin::modulecheck
