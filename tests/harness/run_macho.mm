// Runs a Mach-O program as if it lay in a bundle, over what stands in for Apple's frameworks.
//   run_macho PROGRAM BUNDLE [ARGUMENT...], where BUNDLE is the program's first argument too
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#import "platform/linux/ctk/MainBundle.h"
#include "platform/macho/loader.h"

int main(int argc, char **argv) {
  if (argc < 3) {
    fprintf(stderr, "usage: run_macho PROGRAM BUNDLE [ARGUMENT...]\n");
    return 2;
  }
  @autoreleasepool {
    TKSetMainBundle([NSString stringWithUTF8String:argv[2]]);
  }
  try {
    char *none = nullptr;
    exit(macho::Load(argv[1])->main(argc - 1, argv + 1, environ, &none));
  } catch (const macho::LoadError &error) {
    fprintf(stderr, "run_macho: %s\n", error.what());
    return 127;
  }
}
