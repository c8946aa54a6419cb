// Why nothing can be judged.
#pragma once

#include <stdexcept>

namespace kelvrin::modulecheck {

// what() is one line for the user, without the program's name.
class Failure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace kelvrin::modulecheck
