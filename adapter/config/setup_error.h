// Why the adapter cannot start.
#pragma once

#include <p11-kit/pkcs11.h>

#include <stdexcept>
#include <string>

namespace kelvrin::adapter {

// Thrown while the configuration is read or the module behind is loaded. what() is one line for
// standard error that names the file, the line where there is one, and the cure.
class SetupError : public std::runtime_error {
 public:
  SetupError(CK_RV result, const std::string& line) : std::runtime_error(line), result_(result) {}

  // What C_Initialize answers.
  CK_RV result() const { return result_; }

 private:
  CK_RV result_;
};

}  // namespace kelvrin::adapter
