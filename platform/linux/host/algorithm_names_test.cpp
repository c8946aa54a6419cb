#include "platform/linux/host/algorithm_names.h"

#include <gtest/gtest.h>

#include <set>

namespace host {
namespace {

TEST(AlgorithmNames, AnUnknownNameIsNoAlgorithm) {
  for (const char* name :
       {"", "kSecKeyAlgorithm", "RSASignatureRaw ", "rsasignatureraw", "algid:sign:RSA:raw",
        "kSecKeyAlgorithmkSecKeyAlgorithmRSASignatureRaw"}) {
    EXPECT_EQ(find_algorithm(name), nullptr) << name;
  }
}

TEST(AlgorithmNamesDeathTest, AskingForTheValueOfAnUnknownNameEndsTheProcess) {
  EXPECT_DEATH(algorithm_value("RSASignatureCooked"), "no key algorithm is named");
}

TEST(AlgorithmNames, ThereAreSeventySixAndNoNameOrValueTwice) {
  std::set<std::string> names;
  std::set<std::string> values;
  for (const Algorithm& algorithm : algorithms()) {
    names.insert(algorithm.name);
    values.insert(algorithm.value);
  }
  EXPECT_EQ(algorithms().size(), 76U);
  EXPECT_EQ(names.size(), 76U);
  EXPECT_EQ(values.size(), 76U);
}

TEST(AlgorithmNames, ThePrefixIsOptional) {
  const Algorithm* algorithm = find_algorithm("kSecKeyAlgorithmRSASignatureRaw");
  ASSERT_NE(algorithm, nullptr);
  EXPECT_EQ(algorithm, find_algorithm("RSASignatureRaw"));
  EXPECT_EQ(algorithm->name, "RSASignatureRaw");
  EXPECT_EQ(algorithm->value, "algid:sign:RSA:raw");
}

TEST(AlgorithmNames, AValueIsShownAsItsConstant) {
  EXPECT_EQ(constant_name("algid:sign:RSA:raw"), "kSecKeyAlgorithmRSASignatureRaw");
  EXPECT_EQ(constant_name("algid:sign:RSA:raw-cc"), "algid:sign:RSA:raw-cc");
}

}  // namespace
}  // namespace host
