// Opens each library that is named; ends at the first that does not open, and says why.
#include <dlfcn.h>
#include <stdio.h>

int main(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    if (dlopen(argv[i], RTLD_NOW | RTLD_LOCAL) == NULL) {
      fprintf(stderr, "%s\n", dlerror());
      return 1;
    }
    printf("opened %s\n", argv[i]);
  }
  return argc > 1 ? 0 : 2;
}
