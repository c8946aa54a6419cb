// The application on a desk: its window over the extension and a card of SoftHSM2's, or its
// commands.
//   window FOLDER [--pictures FOLDER | ARGUMENT...]
// FOLDER has the card, as make-card left it: card/softhsm2.conf, card/card/pin. The PIN is given as
// a person would enter it. With --pictures a key is tried and a report made, of which pictures are
// left; the arguments are the application's otherwise.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#import "app/Application.h"
#import "app/strings.h"
#import "app/view/testing/picture.h"
#include "platform/linux/host/tool/pin.h"
#include "tests/window/desk.h"
#include "tests/window/desk_system.h"

namespace {

using kelvrin::app::WindowModel;

// Lets the window live until a condition holds.
template <typename Condition>
void Await(Condition condition) {
  while (!condition()) {
    @autoreleasepool {
      [[NSRunLoop currentRunLoop] runMode:NSDefaultRunLoopMode
                               beforeDate:[NSDate dateWithTimeIntervalSinceNow:0.05]];
    }
  }
}

// Tries the RSA key and makes the report, and leaves a picture of each.
void TakePictures(const window::Desk &desk, const std::string &folder) {
  [NSApplication sharedApplication];
  window::DeskSystem system(desk.bundle());
  const kelvrin::app::Texts texts = kelvrin::app::TextsOf(desk.bundle());
  Surroundings *surroundings = [[[Surroundings alloc] initWithGuide:@""] autorelease];
  Application *application = [[Application alloc] initWithSystem:&system
                                                           texts:&texts
                                                    surroundings:surroundings];
  const WindowModel &model = *[application model];
  MainWindow *window = [application window];
  [window show];
  Await([&] { return !model.certificates().empty(); });
  // The RSA key, which can do most.
  [[[window certificates] table] selectRowIndexes:[NSIndexSet indexSetWithIndex:1]
                             byExtendingSelection:NO];
  [[[window detail] tryButton] performClick:nil];
  Await([&] { return model.trial() != nullptr && !model.trial()->running(); });
  SavePicture([window window], folder + "/window-ready.png");
  [[[window detail] diagnoseButton] performClick:nil];
  Await([&] { return model.diagnosis() != nullptr && model.diagnosis()->is_complete(); });
  SavePicture([[window report] window], folder + "/window-report.png");
  [application release];
}

int Run(int argc, const char **argv) {
  const std::string folder = std::filesystem::absolute(argv[1]);
  // What the extension prints in this process is none of the application's output.
  const int output = dup(STDOUT_FILENO);
  dup2(STDERR_FILENO, STDOUT_FILENO);
  setenv("SOFTHSM2_CONF", (folder + "/card/softhsm2.conf").c_str(), 1);
  const std::string pin = folder + "/card/card/pin";
  window::Desk desk(window::Install(folder), [pin] { return tokenhost::ReadPinFile(pin); });
  desk.desktop().AddReader(window::kReader);
  desk.desktop().InsertCard(window::kReader);
  desk.desktop().Settle();
  if (argc == 4 && strcmp(argv[2], "--pictures") == 0) {
    TakePictures(desk, argv[3]);
    return 0;
  }
  fflush(stdout);
  dup2(output, STDOUT_FILENO);
  close(output);
  window::DeskSystem system(desk.bundle());
  return kelvrin::app::RunApplication(desk.bundle(), &system, argc - 1, argv + 1);
}

}  // namespace

int main(int argc, const char **argv) {
  setenv("GNUSTEP_STRING_ENCODING", "NSUTF8StringEncoding", 0);
  if (argc < 2) {
    fputs("usage: window FOLDER [--pictures FOLDER | ARGUMENT...]\n", stderr);
    return 2;
  }
  @autoreleasepool {
    return Run(argc, argv);
  }
}
