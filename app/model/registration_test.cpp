#include "app/model/registration.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kelvrin::app {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kId[] = "org.kelvrin.KelvrinToken.extension";

// A line of pluginkit's list.
std::string Line(const std::string& mark, const std::string& id, const std::string& path,
                 const std::string& version = "1.0.0") {
  return mark + "    " + id + "(" + version + ")\t4E1FA2D0-0001\t2027-01-02 03:04:05 +0000\t" +
         path + "\n";
}

Registration Read(const std::string& output) { return ReadRegistration({.output = output}, kId); }

TEST(RegistrationTest, EveryMarkButIgnoreMeansThatItIsUsed) {
  for (const char* mark : {" ", "+", "!", "=", "?"}) {
    const Registration registration = Read(Line(mark, kId, "/A.appex") + " (1 plug-in)\n");
    EXPECT_TRUE(registration.is_known) << mark;
    EXPECT_TRUE(registration.is_on) << mark;
    EXPECT_THAT(registration.paths, ElementsAre("/A.appex")) << mark;
  }
  const Registration ignored = Read(Line("-", kId, "/A.appex") + " (1 plug-in)\n");
  EXPECT_TRUE(ignored.is_known);
  EXPECT_FALSE(ignored.is_on);
  EXPECT_THAT(ignored.paths, ElementsAre("/A.appex"));
}

TEST(RegistrationTest, AVersionMayBeMissing) {
  EXPECT_THAT(Read(Line("+", kId, "/A.appex", "(null)")).paths, ElementsAre("/A.appex"));
}

TEST(RegistrationTest, NoMatches) {
  const Registration registration = Read("  (no matches)\n");
  EXPECT_TRUE(registration.is_known);
  EXPECT_FALSE(registration.is_on);
  EXPECT_THAT(registration.paths, IsEmpty());
}

TEST(RegistrationTest, NoMatchesMayBeAFailureToPluginkit) {
  EXPECT_TRUE(ReadRegistration({.status = 1, .output = "  (no matches)\n"}, kId).is_known);
}

TEST(RegistrationTest, OneCopyOfSeveralThatIsOnIsEnough) {
  const Registration registration =
      Read(Line("-", kId, "/A.appex") + Line("+", kId, "/My Disk/B (old).appex") +
           Line("-", kId, "/C.appex") + " (3 plug-ins)\n");
  EXPECT_TRUE(registration.is_on);
  EXPECT_THAT(registration.paths, ElementsAre("/A.appex", "/My Disk/B (old).appex", "/C.appex"));
}

TEST(RegistrationTest, OtherExtensionsAreLeftOut) {
  const std::string id = kId;
  const Registration registration =
      Read(Line("+", "com.apple.CryptoTokenKit.pivtoken", "/System/pivtoken.appex") +
           Line("+", id + ".beta", "/B.appex") + Line("+", id + "2", "/C.appex") +
           Line("+", "com.example." + id, "/D.appex") + Line("-", id, "/A.appex") +
           Line("+", "com.example", "/Volumes/ " + id + "/E.appex") + " (6 plug-ins)\n");
  EXPECT_THAT(registration.paths, ElementsAre("/A.appex"));
  EXPECT_FALSE(registration.is_on);
}

TEST(RegistrationTest, ALineThatEndsTooSoon) {
  const std::string id = kId;
  EXPECT_THAT(Read(id + "(1.0)\t/A.appex\n+    " + id).paths, IsEmpty());
  EXPECT_THAT(Read("+    " + id + "(1.0)\n").paths, ElementsAre(""));
}

TEST(RegistrationTest, AProgramThatFailsTellsNothing) {
  using End = ProcessResult::End;
  EXPECT_FALSE(ReadRegistration({.end = End::kNoProgram}, kId).is_known);
  EXPECT_FALSE(ReadRegistration({.end = End::kTimedOut}, kId).is_known);
  const Registration failed =
      ReadRegistration({.status = 1, .output = "match: ", .errors = "Connection invalid\n"}, kId);
  EXPECT_FALSE(failed.is_known);
}

TEST(RegistrationTest, Commands) {
  EXPECT_EQ(ListExtensions().program, "/usr/bin/pluginkit");
  EXPECT_THAT(ListExtensions().arguments,
              ElementsAre("-m", "-A", "-D", "-v", "-p", "com.apple.ctk-tokens"));
  EXPECT_EQ(RegisterExtension("/A.appex").program, "/usr/bin/pluginkit");
  EXPECT_THAT(RegisterExtension("/A.appex").arguments, ElementsAre("-a", "/A.appex"));
  EXPECT_EQ(SwitchOnExtension(kId).program, "/usr/bin/pluginkit");
  EXPECT_THAT(SwitchOnExtension(kId).arguments, ElementsAre("-e", "use", "-i", kId));
}

}  // namespace
}  // namespace kelvrin::app
