// What a token's key can be asked for.
#pragma once

namespace host {

// Numbered as TKTokenOperation.
enum class Operation { kReadData = 1, kSign = 2, kDecrypt = 3, kKeyExchange = 4 };

// "read", "sign", "decrypt" or "exchange".
constexpr const char* OperationName(Operation operation) {
  switch (operation) {
    case Operation::kReadData:
      return "read";
    case Operation::kSign:
      return "sign";
    case Operation::kDecrypt:
      return "decrypt";
    case Operation::kKeyExchange:
      return "exchange";
  }
  return "unknown";
}

}  // namespace host
