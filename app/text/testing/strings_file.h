// The application's strings files, as the sentences are tested with them.
#pragma once

#include <map>
#include <ostream>
#include <string>

#include "app/text/texts.h"

namespace kelvrin::app {

// The texts of a language, "en" or "de", by their keys.
std::map<std::string, std::string> ReadStrings(const std::string& language);

// A sentence in both languages.
struct Both {
  std::string english;
  std::string german;

  bool operator==(const Both&) const = default;
  friend std::ostream& operator<<(std::ostream& stream, const Both& both) {
    return stream << both.english << "\n" << both.german;
  }
};

// The texts in each language. Looking up a key that is missing fails the test.
const Texts& English();
const Texts& German();

// What `say` says with each of them.
Both InBoth(const std::function<std::string(const Texts&)>& say);

}  // namespace kelvrin::app
