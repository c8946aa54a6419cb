// Paths of files as text; not every C++ library that the adapter is built with has more.
#pragma once

#include <string>
#include <string_view>

namespace kelvrin::adapter {

// The path as seen from the process's working folder; an absolute one stays as it is. Throws
// std::system_error when it is empty or the working folder has no path.
std::string AbsolutePath(const std::string& path);

// `path` as seen from the folder that holds `file`, an absolute path; without ".", ".." and double
// slashes. No file is looked at, so ".." after a symbolic link leads to the folder of the link.
std::string PathBeside(const std::string& file, std::string_view path);

// The path with the ending of its file name, from the last dot, replaced by `ending`, which begins
// with a dot. A name without an ending gets one; a dot that begins a name begins no ending.
std::string WithEnding(const std::string& path, std::string_view ending);

// Whether the path leads to a regular file: no folder, pipe or device.
bool IsRegularFile(const std::string& path);

}  // namespace kelvrin::adapter
