// The shipped application's commands on a desk with a card of SoftHSM2's.
//   run_application SHIPPED-APP FOLDER ARGUMENT...
// FOLDER as for window. Files of SHIPPED-APP's are what runs: its program, and its sentences.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#import "platform/linux/ctk/MainBundle.h"
#import "platform/linux/host/foundation.h"
#include "platform/linux/host/tool/pin.h"
#include "platform/macho/loader.h"
#include "tests/window/desk.h"

namespace fs = std::filesystem;

int main(int argc, char **argv) {
  setenv("GNUSTEP_STRING_ENCODING", "NSUTF8StringEncoding", 0);
  if (argc < 3) {
    fputs("usage: run_application SHIPPED-APP FOLDER ARGUMENT...\n", stderr);
    return 2;
  }
  const fs::path shipped = fs::absolute(argv[1]);
  const fs::path folder = fs::absolute(argv[2]);
  // What the extension prints in this process is none of the application's output.
  const int output = dup(STDOUT_FILENO);
  dup2(STDERR_FILENO, STDOUT_FILENO);
  setenv("SOFTHSM2_CONF", (folder / "card/softhsm2.conf").c_str(), 1);
  @autoreleasepool {
    const fs::path application = window::Install(folder);
    fs::copy(shipped / "Contents/Resources", application / "Contents/Resources",
             fs::copy_options::recursive | fs::copy_options::overwrite_existing);
    window::Desk desk(application,
                      [folder] { return tokenhost::ReadPinFile(folder / "card/card/pin"); });
    desk.desktop().AddReader(window::kReader);
    desk.desktop().InsertCard(window::kReader);
    desk.desktop().Settle();
    TKSetMainBundle(host::ToString(application));
    fflush(stdout);
    dup2(output, STDOUT_FILENO);
    close(output);
    const std::string program = shipped / "Contents/MacOS/KelvrinToken";
    char *none = nullptr;
    return macho::Load(program)->main(argc - 2, argv + 2, environ, &none);
  }
}
