// Libraries that cannot be loaded, and a program: which, the definition says.
extern "C" {
#if defined(NOWHERE)  // bound to a library that has it according to its stub alone
void kelvrin_nowhere();
__attribute__((visibility("default"))) void Use() { kelvrin_nowhere(); }
#elif defined(ELSEWHERE)  // a function of libSystem, bound to libc++
int __cxa_atexit(void (*)(void*), void*, void*);
__attribute__((visibility("default"))) int Use() { return __cxa_atexit(nullptr, nullptr, nullptr); }
#elif defined(UNKNOWN)    // a function that macOS has and nothing here stands for
void* pthread_self();
__attribute__((visibility("default"))) void* Use() { return pthread_self(); }
#elif defined(PROGRAM)
int puts(const char*);
int main(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) puts(argv[i]);
  return argc;
}
#else  // loadable by its contents
__attribute__((visibility("default"))) int* Use() {
  static int value = 0;
  static int* address = &value;
  return address;
}
#endif
}
