// What the adapter keeps for a session of its caller.
#pragma once

#include <p11-kit/pkcs11.h>

#include <map>
#include <memory>
#include <optional>
#include <utility>

#include "adapter/objects/search.h"
#include "adapter/operations/key_operation.h"
#include "adapter/session/token_life.h"

namespace kelvrin::adapter {

struct Session {
  Session(std::shared_ptr<TokenLife> its_token, CK_SESSION_HANDLE its_inner, CK_FLAGS flags,
          NewHandle note)
      : token(std::move(its_token)),
        inner(its_inner),
        operation(token->objects, token->pin, inner, flags, std::move(note)) {}

  std::shared_ptr<TokenLife> token;
  // The module's handle; CK_INVALID_HANDLE where the token is absent, or where the module has given
  // it to another session.
  CK_SESSION_HANDLE inner;
  KeyOperation operation;
  std::optional<Search> search;
  std::optional<CK_OBJECT_HANDLE> derived;  // the last one, which is destroyed before the next
};

// By the handle that the caller has. It is counted up as long as the process lives: modules give
// theirs out again, and what an old one meant must never reach another token.
using Sessions = std::map<CK_SESSION_HANDLE, Session>;

}  // namespace kelvrin::adapter
