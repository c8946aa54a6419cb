// What a check ends with.
#pragma once

#include <stdexcept>
#include <string>

namespace kelvrin::modulecheck {

// The program's exit statuses.
enum class Conclusion : int {
  kWorks = 0,
  kDoesNotWork = 1,
  kWrongUsage = 2,
  kWorksWithAdapter = 3,
  kNotJudged = 4,
};

// Thrown where a check ends before anything was judged. what() is one line for the user, without
// the program's name.
class Failure : public std::runtime_error {
 public:
  explicit Failure(const std::string& what, Conclusion conclusion = Conclusion::kDoesNotWork)
      : std::runtime_error(what), conclusion_(conclusion) {}

  Conclusion conclusion() const { return conclusion_; }

 private:
  Conclusion conclusion_;
};

}  // namespace kelvrin::modulecheck
