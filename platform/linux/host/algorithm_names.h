// The 76 key algorithms of Security, by name and by value.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace host {

struct Algorithm {
  std::string name;   // Apple's constant without "kSecKeyAlgorithm": "RSASignatureRaw"
  std::string value;  // the constant's string, which is what a token is asked about
};

// All of them, in the order of the header that declares them.
const std::vector<Algorithm>& algorithms();

// The algorithm of a name, with or without "kSecKeyAlgorithm"; null when there is none.
const Algorithm* find_algorithm(std::string_view name);

// Apple's constant with that value, "kSecKeyAlgorithmRSASignatureRaw", for people to read; the
// value itself when it is none of a constant.
std::string constant_name(std::string_view value);

// The value of an algorithm that is known to be one; ends the process when it is not.
const std::string& algorithm_value(std::string_view name);

}  // namespace host
