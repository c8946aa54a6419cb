// machorun PROGRAM [ARGUMENT...]: runs a Mach-O program.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "platform/macho/loader.h"

int main(int argc, char** argv) {
  if (argc < 2) {
    fprintf(stderr, "usage: machorun PROGRAM [ARGUMENT...]\n");
    return 2;
  }
  try {
    const macho::Image* const program = macho::Load(argv[1]);
    if (program->main == nullptr) throw macho::LoadError(program->path + ": no program");
    char* none = nullptr;
    exit(program->main(argc - 1, argv + 1, environ, &none));
  } catch (const macho::LoadError& error) {
    fprintf(stderr, "machorun: %s\n", error.what());
    return 127;
  }
}
