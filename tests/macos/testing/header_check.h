// Holds headers against the table declarations_c.txt.
#pragma once

#include <vector>

#include "tests/macos/header_listing.h"
#include "tests/macos/metadata_table.h"
#include "tests/macos/text_file.h"
#include "tests/temporary_folder.h"

namespace kelvrin::macos {

inline std::vector<Metadata> List(const HeaderFolders& headers) {
  const TemporaryFolder folder;
  return ListHeaders(headers, {.program = KELVRIN_MACOS_COMPILER, .sdk = KELVRIN_MACOS_SDK},
                     folder.path());
}

inline Findings CheckListing(const HeaderFolders& headers) {
  std::vector<Metadata> table =
      ParseTable(ReadFile(KELVRIN_SOURCE "/tests/macos/declarations_c.txt"));
  SortLines(table);
  return Compare(table, List(headers), "arm64");
}

}  // namespace kelvrin::macos
