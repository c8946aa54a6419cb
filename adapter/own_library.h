// Where the adapter itself lies.
#ifndef KELVRIN_ADAPTER_OWN_LIBRARY_H_
#define KELVRIN_ADAPTER_OWN_LIBRARY_H_

#include <filesystem>

namespace kelvrin::adapter {

// The absolute path, as it was given to the dynamic linker, of the library (or program) that holds
// this function. Symbolic links are kept: the name under which the library was opened decides.
std::filesystem::path OwnLibrary();

}  // namespace kelvrin::adapter

#endif  // KELVRIN_ADAPTER_OWN_LIBRARY_H_
