#include "platform/macho/objc/classes.h"

#import <Foundation/Foundation.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "platform/linux/host/testing/text_files.h"
#include "platform/macho/testing/macho_files.h"

@interface NSObject (OfTheImage)
+ (NSString *)title;
- (NSString *)name;
- (NSString *)describe:(NSString *)text;
- (double)half:(double)value;
- (NSInteger)count;
- (NSInteger)counted;
- (NSInteger)kelvrinAnswer;
@end

namespace macho::testing {
namespace {

using ::host::testing::TemporaryFolder;
using ::testing::HasSubstr;

class ClassesTest : public ::testing::Test {
 protected:
  ClassesTest() { Load(TestFile("classes.dylib")); }
  ~ClassesTest() override { [pool_ drain]; }

  static id Make(const char *name) {
    return [[[reinterpret_cast<Class>(objc_getClass(name)) alloc] init] autorelease];
  }

 private:
  NSAutoreleasePool *pool_ = [[NSAutoreleasePool alloc] init];
};

TEST_F(ClassesTest, TextsBeyondAsciiAreRead) {
  EXPECT_STREQ([[reinterpret_cast<Class>(objc_getClass("KelvrinBase")) title] UTF8String],
               "Schlüssel – Karte");
}

TEST_F(ClassesTest, PropertiesAreRead) {
  EXPECT_STREQ([[Make("KelvrinDerived") name] UTF8String], "Schlüssel – Karte");
}

TEST_F(ClassesTest, ArgumentsOfAnyNumberGetThrough) {
  EXPECT_STREQ([[Make("KelvrinBase") describe:@"x"] UTF8String], "x 1 Schlüssel – Karte 2 3 4 5");
}

TEST_F(ClassesTest, VariablesLieBehindThoseOfTheSuperclass) {
  id object = Make("KelvrinDerived");
  EXPECT_EQ([object count], 1);
  EXPECT_EQ([object count], 2);
  EXPECT_EQ([object counted], 2) << "the category's method";
  EXPECT_STREQ([[object name] UTF8String], "Schlüssel – Karte") << "counting left it alone";
}

TEST_F(ClassesTest, MessagesReachTheSuperclassWithNumbersIntact) {
  EXPECT_EQ([Make("KelvrinDerived") half:5.0], 3.5);
}

TEST_F(ClassesTest, ProtocolsAreKept) {
  id counting = NSProtocolFromString(@"KelvrinCounting");
  ASSERT_NE(counting, nil);
  EXPECT_TRUE([Make("KelvrinDerived") conformsToProtocol:counting]);
  EXPECT_FALSE([Make("KelvrinBase") conformsToProtocol:counting]);
}

TEST_F(ClassesTest, CategoriesReachClassesOfTheProgram) {
  EXPECT_EQ([@"any object" kelvrinAnswer], 42);
}

TEST_F(ClassesTest, AClassThatIsThereAlreadyIsRefused) {
  const TemporaryFolder folder;
  std::filesystem::copy_file(TestFile("classes.dylib"), folder / "copy.dylib");
  EXPECT_THAT(WhyNot(folder / "copy.dylib"),
              HasSubstr("a class that is there already: KelvrinBase"));
}

}  // namespace
}  // namespace macho::testing
