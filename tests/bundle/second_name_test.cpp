// Both resource names of the built bundle lead to one image, whichever is loaded first.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/temporary_folder.h"

namespace kelvrin {
namespace {

namespace fs = std::filesystem;

constexpr char kFirst[] = "libpkcs11qarn_Lindel_PCSC.dylib";
constexpr char kSecond[] = "libpkcs11qarn_Vumo_PCSC.dylib";

// What the extension asks a library for, and the file that it came from.
struct Answer {
  void* function_list = nullptr;
  std::string file;
};

Answer Ask(const fs::path& library) {
  void* handle = dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) {
    ADD_FAILURE() << dlerror();
    return {};
  }
  void* symbol = dlsym(handle, "C_GetFunctionList");
  Dl_info info = {};
  if (symbol == nullptr || dladdr(symbol, &info) == 0) {
    ADD_FAILURE() << library << " has no C_GetFunctionList";
    return {};
  }
  void* list = nullptr;
  EXPECT_EQ(reinterpret_cast<unsigned long (*)(void**)>(symbol)(&list), 0U);
  return {list, fs::canonical(info.dli_fname)};
}

// A folder with both names of the bundle, of which the process has loaded neither.
class SecondNameTest : public testing::Test {
 protected:
  SecondNameTest() {
    for (const char* name : {kFirst, kSecond}) {
      fs::copy_file(fs::path(KELVRIN_RESOURCES) / name, folder_ / name);
    }
  }

  const TemporaryFolder folder_;
};

TEST_F(SecondNameTest, GivesTheFunctionListOfTheFirst) {
  const Answer first = Ask(folder_ / kFirst);
  EXPECT_NE(first.function_list, nullptr);
  EXPECT_EQ(Ask(folder_ / kSecond).function_list, first.function_list);
}

TEST_F(SecondNameTest, LoadsTheFirstWhereItIsAskedAlone) {
  const Answer second = Ask(folder_ / kSecond);
  EXPECT_EQ(second.file, fs::canonical(folder_ / kFirst));
  EXPECT_EQ(Ask(folder_ / kFirst).function_list, second.function_list);
}

TEST_F(SecondNameTest, MeansTheLibraryBesideIt) {
  const TemporaryFolder other;
  for (const char* name : {kFirst, kSecond}) fs::copy_file(folder_ / name, other / name);
  EXPECT_EQ(Ask(folder_ / kSecond).file, fs::canonical(folder_ / kFirst));
  EXPECT_EQ(Ask(other / kSecond).file, fs::canonical(other / kFirst));
}

}  // namespace
}  // namespace kelvrin
