#include "tests/macos/bundle.h"

#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>

namespace kelvrin::macos {
namespace {

// The lines NAME:TYPE=VALUE of a cache.
std::map<std::string, std::string> CacheVariables(const std::filesystem::path& path) {
  std::ifstream file(path);
  if (!file) throw std::runtime_error(path.string() + " is missing: run ./dev macos first");
  std::map<std::string, std::string> variables;
  for (std::string line; std::getline(file, line);) {
    const size_t colon = line.find(':');
    const size_t equals = line.find('=');
    if (line.starts_with("#") || line.starts_with("//") || colon > equals ||
        equals == std::string::npos) {
      continue;
    }
    variables[line.substr(0, colon)] = line.substr(equals + 1);
  }
  return variables;
}

// The members of a CMake list.
std::vector<std::string> Members(const std::string& list) {
  std::vector<std::string> members;
  std::istringstream stream(list);
  for (std::string member; std::getline(stream, member, ';');) members.push_back(member);
  return members;
}

}  // namespace

BuildOptions ReadBuildOptions(const std::filesystem::path& build) {
  const auto path = build / "CMakeCache.txt";
  const auto variables = CacheVariables(path);
  const auto value = [&](const std::string& name) {
    const auto variable = variables.find(name);
    if (variable == variables.end()) throw std::runtime_error(path.string() + " lacks " + name);
    return variable->second;
  };
  return {.version = value("CMAKE_PROJECT_VERSION"),
          .application_id = value("KELVRIN_APPLICATION_ID"),
          .extension_id = value("KELVRIN_EXTENSION_ID"),
          .reader_name = value("KELVRIN_READER_NAME"),
          .aids = Members(value("KELVRIN_AID")),
          .module = value("KELVRIN_MODULE"),
          .module_in_place = value("KELVRIN_MODULE_IN_PLACE") == "ON",
          .module_conf = value("KELVRIN_MODULE_CONF"),
          .native_lindel = value("KELVRIN_NATIVE_MODULE_LINDEL"),
          .native_vumo = value("KELVRIN_NATIVE_MODULE_VUMO")};
}

Bundle::Bundle(const std::filesystem::path& build) : build_(build) {
  if (!std::filesystem::exists(application())) {
    throw std::runtime_error(application().string() + " is missing: run ./dev macos first");
  }
  options_ = ReadBuildOptions(build);
}

}  // namespace kelvrin::macos
