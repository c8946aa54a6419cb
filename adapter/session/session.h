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
  Session(std::shared_ptr<TokenLife> its_token, CK_SESSION_HANDLE handle, CK_FLAGS flags,
          NewHandle note)
      : token(std::move(its_token)),
        operation(token->objects, token->pin, handle, flags, std::move(note)) {}

  std::shared_ptr<TokenLife> token;
  KeyOperation operation;
  std::optional<Search> search;
  std::optional<CK_OBJECT_HANDLE> derived;  // the last one, which is destroyed before the next
  bool is_lost = false;                     // the module has given its handle to another session
};

// By the session's handle, which is the module's own.
using Sessions = std::map<CK_SESSION_HANDLE, Session>;

}  // namespace kelvrin::adapter
