// A module that calls a function nobody has: it loads only when functions are resolved on use.
int kelvrin_function_that_nobody_has(void);

__attribute__((visibility("default"))) unsigned long C_GetFunctionList(void** list);
unsigned long C_GetFunctionList(void** list) {
  *list = (void*)0;
  return 0;
}

__attribute__((visibility("default"))) int call_what_nobody_has(void);
int call_what_nobody_has(void) { return kelvrin_function_that_nobody_has(); }
