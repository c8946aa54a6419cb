// A library that loads and is no PKCS#11 module.
__attribute__((visibility("default"))) int no_function_list_here(void);
int no_function_list_here(void) { return 0; }
