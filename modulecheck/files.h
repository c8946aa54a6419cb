// Files and their paths as text; not every C++ library that modulecheck is built with has more.
#pragma once

#include <string>

namespace kelvrin::modulecheck {

// Whether the path leads to anything, to a folder, to a plain file. Links are followed.
bool Exists(const std::string& path);
bool IsFolder(const std::string& path);
bool IsPlainFile(const std::string& path);
// Whether the descriptor is a plain file's.
bool IsPlainFile(int descriptor);

// The path as seen from the process's working folder; as it is when that has no path.
std::string AbsolutePath(const std::string& path);

// The path without links, "." and ".."; empty when it leads nowhere.
std::string RealPath(const std::string& path);

// What comes before the last slash of an absolute path: "/" for what lies there.
std::string ParentOf(const std::string& path);
// What comes after it.
std::string NameOf(const std::string& path);

// Copies a file's contents to a new one that the user alone may read, write and execute. Returns
// what failed, or an empty text.
std::string CopyFile(const std::string& from, const std::string& to);

}  // namespace kelvrin::modulecheck
