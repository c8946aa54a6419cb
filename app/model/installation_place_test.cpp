#include "app/model/installation_place.h"

#include <gtest/gtest.h>

namespace kelvrin::app {
namespace {

TEST(InstallationPlaceTest, FoldersOfApplications) {
  EXPECT_TRUE(IsInstallationPlace("/Applications/KelvrinToken.app", "/Users/ann"));
  EXPECT_TRUE(IsInstallationPlace("/Applications/Cards/KelvrinToken.app", "/Users/ann"));
  EXPECT_TRUE(IsInstallationPlace("/Users/ann/Applications/KelvrinToken.app", "/Users/ann"));
}

TEST(InstallationPlaceTest, Elsewhere) {
  for (const char* path :
       {"/Users/ann/Downloads/KelvrinToken.app", "/Users/bob/Applications/KelvrinToken.app",
        "/Users/ann/work/Applications/KelvrinToken.app", "/Applications.old/KelvrinToken.app",
        "/private/var/folders/x/T/AppTranslocation/0815/d/KelvrinToken.app",
        "/Volumes/Applications/KelvrinToken.app", "/Users/ann", "/Applications", ""}) {
    EXPECT_FALSE(IsInstallationPlace(path, "/Users/ann")) << path;
  }
}

TEST(InstallationPlaceTest, AUserWithoutAFolder) {
  EXPECT_TRUE(IsInstallationPlace("/Applications/KelvrinToken.app", ""));
  EXPECT_FALSE(IsInstallationPlace("/Users/ann/Applications/KelvrinToken.app", ""));
}

}  // namespace
}  // namespace kelvrin::app
