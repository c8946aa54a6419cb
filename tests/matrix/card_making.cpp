#include "tests/matrix/card_making.h"

#include <stdexcept>

#include "platform/linux/host/testing/program.h"

namespace matrix {

void RunTool(const std::vector<std::string>& arguments) {
  const host::testing::Outcome outcome = host::testing::RunProgram(arguments);
  if (outcome.status != 0) {
    throw std::runtime_error(arguments[0] + ": " + outcome.output + outcome.errors);
  }
}

void Certify(const std::filesystem::path& folder, const std::string& name,
             const std::vector<std::string>& key, const std::string& usage) {
  const std::string base = folder / name;
  std::vector<std::string> arguments = {KELVRIN_OPENSSL, "req",
                                        "-x509",         "-noenc",
                                        "-days",         "3650",
                                        "-subj",         "/C=DE/O=Kelvrin Test/CN=" + name,
                                        "-addext",       "keyUsage=" + usage,
                                        "-keyout",       base + ".key",
                                        "-out",          base + ".pem",
                                        "-newkey"};
  arguments.insert(arguments.end(), key.begin(), key.end());
  RunTool(arguments);
  RunTool(
      {KELVRIN_OPENSSL, "x509", "-in", base + ".pem", "-outform", "DER", "-out", base + ".der"});
}

}  // namespace matrix
