// A folder that lives as long as a test.
#ifndef KELVRIN_ADAPTER_TESTING_TEMPORARY_FOLDER_H_
#define KELVRIN_ADAPTER_TESTING_TEMPORARY_FOLDER_H_

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <system_error>

namespace kelvrin::adapter {

class TemporaryFolder {
 public:
  TemporaryFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "kelvrin-adapter.XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary folder");
    path_ = name;
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  const std::filesystem::path& path() const { return path_; }

  // Writes a file into the folder; its path.
  std::filesystem::path Write(const std::string& name, const std::string& contents) const {
    std::ofstream(path_ / name, std::ios::binary) << contents;
    return path_ / name;
  }

 private:
  std::filesystem::path path_;
};

}  // namespace kelvrin::adapter

#endif  // KELVRIN_ADAPTER_TESTING_TEMPORARY_FOLDER_H_
