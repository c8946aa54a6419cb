// Functions of p11/ that a test replaces or watches. Works in test executables that are linked with
// the --wrap options of token/CMakeLists.txt.
#pragma once

#include <p11-kit/pkcs11.h>

#include <functional>

namespace token_testing {

// Empty functions leave the real one in place. Everything is back to that when it goes: one at a
// time.
struct ReplacedP11 {
  ReplacedP11();
  ~ReplacedP11();
  ReplacedP11(const ReplacedP11&) = delete;
  ReplacedP11& operator=(const ReplacedP11&) = delete;

  // Runs instead of init.
  std::function<CK_RV(const char* path, void** module, CK_FUNCTION_LIST** p11, CK_SLOT_ID* slot,
                      CK_SESSION_HANDLE* session, const char* reader_name)>
      init;
  // Runs instead of login_required.
  std::function<CK_RV(CK_BBOOL* required)> login_required;
  // Runs before mech_to_str, which then runs too.
  std::function<void(const char* name)> before_mech_to_str;
  // Runs before C_UnloadModule, which then runs too. The loader's own call is not seen.
  std::function<void(void* module)> before_unload;
};

}  // namespace token_testing
