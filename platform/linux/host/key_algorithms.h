// The 76 key algorithms of Security, by name and by value.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "platform/linux/host/operation.h"

namespace host {

struct Algorithm {
  std::string_view name;   // Apple's constant without "kSecKeyAlgorithm": "RSASignatureRaw"
  std::string_view value;  // the constant's string, which is what a token is asked about

  // The one operation that is performed with it on a private key.
  Operation operation() const;
};

// All of them, in the order of the header that declares them.
std::span<const Algorithm> Algorithms();

// The algorithm of a name, with or without "kSecKeyAlgorithm"; null when there is none.
const Algorithm* FindAlgorithm(std::string_view name);

// Apple's constant with that value, "kSecKeyAlgorithmRSASignatureRaw", for people to read; the
// value itself when it is none of a constant.
std::string ConstantName(std::string_view value);

// The value of an algorithm that is known to be one.
std::string AlgorithmValue(std::string_view name);

}  // namespace host
