// Whether the link stubs that are ours list what is used and nothing else.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "tests/macos/findings.h"
#include "tests/macos/link_stubs.h"

namespace kelvrin::macos {

// Holds the stubs, except those of the C library and of the C++ library, against lists of imports
// as ImportLines() gives them. A class is used when it or its metaclass is: stubs list both at
// once.
Findings CheckStubsAreUsed(const std::map<std::string, LinkStub>& stubs,
                           const std::vector<std::string>& lists);

}  // namespace kelvrin::macos
