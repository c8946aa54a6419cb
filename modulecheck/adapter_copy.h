// A copy of the adapter in front of a module.
#pragma once

#include <string>

namespace kelvrin::modulecheck {

// Whether one of the lines of an adapter's configuration gives this key a value.
bool HasKey(const std::string& lines, const std::string& key);

// Lives in a folder that nobody else may look into, and goes with it.
class AdapterCopy {
 public:
  // Copies the library `adapter` and configures the copy for the module, an absolute path. A reader
  // name that is not empty becomes the slot's, unless the further lines name one. `lines` is the
  // text of the user's own file, which comes first, so that the adapter's messages count its lines.
  // Throws Failure.
  AdapterCopy(const std::string& adapter, const std::string& module, const std::string& reader_name,
              const std::string& lines);
  ~AdapterCopy();
  AdapterCopy(const AdapterCopy&) = delete;
  AdapterCopy& operator=(const AdapterCopy&) = delete;

  std::string library() const;

  std::string configuration() const;

  // A message of the adapter's with `file` in the place of the configuration's own path.
  std::string Renamed(std::string message, const std::string& file) const;

 private:
  void Remove() const;

  std::string folder_;
};

}  // namespace kelvrin::modulecheck
