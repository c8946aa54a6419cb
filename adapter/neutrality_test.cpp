// The adapter treats all modules alike: what a module is called, or who made it, decides nothing.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

namespace kelvrin::adapter {
namespace {

constexpr std::array<std::string_view, 22> kNames = {
    "softhsm", "softokn", "opensc",  "opencryptoki", "p11-kit", "p11kit",  "yubi",   "nitro",
    "gemalto", "thales",  "safenet", "aladdin",      "cardos",  "bit4id",  "idemia", "oberthur",
    "aktiv",   "rutoken", "utimaco", "cryptovision", "d-trust", "cloudhsm"};
// Where a module says what it is called.
constexpr std::array<std::string_view, 6> kFields = {"manufacturerID",  "libraryDescription",
                                                     "libraryVersion",  ".model",
                                                     "firmwareVersion", "hardwareVersion"};
constexpr std::array<std::string_view, 10> kBranches = {
    "if (", "if(", "#if ", "switch (", "case ", " ? ", "==", "!=", "while (", "GTEST_SKIP"};

template <typename Texts>
bool HasAny(const std::string& line, const Texts& texts) {
  return std::any_of(texts.begin(), texts.end(),
                     [&](std::string_view text) { return line.find(text) != std::string::npos; });
}

bool HasName(std::string line) {
  // The name of the standard's header is nobody's module.
  if (line.starts_with("#include <p11-kit/")) return false;
  std::transform(line.begin(), line.end(), line.begin(),
                 [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
  return HasAny(line, kNames);
}

bool IsProduct(const std::filesystem::path& file) {
  return !file.filename().string().ends_with("_test.cpp") &&
         file.parent_path().filename() != "testing";
}

// What the adapter itself says it is called, it writes.
bool Writes(const std::string& line) {
  return line.find("SetField(") != std::string::npos ||
         line.find("answer.libraryVersion = ") != std::string::npos;
}

// Whether a line may not stand where it does.
bool IsPartial(const std::string& line, bool is_product) {
  if (is_product) return HasName(line) || (HasAny(line, kFields) && !Writes(line));
  return HasAny(line, kBranches) && HasName(line);
}

TEST(NeutralityTest, CheckFindsWhatItLooksFor) {
  EXPECT_TRUE(IsPartial("  if (FieldText(info.manufacturerID) == kMaker) {", true));
  EXPECT_TRUE(IsPartial("constexpr std::string_view kSlow = \"OpenSC\";", true));
  EXPECT_TRUE(IsPartial("  const bool is_old = info.libraryVersion.major < 2;", true));
  EXPECT_TRUE(IsPartial("  if (module.stem() == \"libsofthsm2\") GTEST_SKIP();", false));
  EXPECT_FALSE(IsPartial("  SetField(answer.manufacturerID, \"Nobody\");", true));
  EXPECT_FALSE(IsPartial("#include <p11-kit/pkcs11.h>", true));
  EXPECT_FALSE(IsPartial("  CK_FUNCTION_LIST* softhsm_ = Load();", false));
}

TEST(NeutralityTest, NoSourceAndNoTestBranchesOnAName) {
  std::size_t files = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(KELVRIN_ADAPTER_SOURCES)) {
    const std::filesystem::path& file = entry.path();
    if (file.extension() != ".cpp" && file.extension() != ".h") continue;
    if (file.filename() == "neutrality_test.cpp") continue;
    ++files;
    std::ifstream source(file);
    std::string line;
    for (int number = 1; std::getline(source, line); ++number) {
      EXPECT_FALSE(IsPartial(line, IsProduct(file))) << file << ":" << number << ": " << line;
    }
  }
  EXPECT_GT(files, 100u) << "the sources lie elsewhere";
}

}  // namespace
}  // namespace kelvrin::adapter
