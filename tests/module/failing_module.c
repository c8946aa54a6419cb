// A module whose C_GetFunctionList fails with the result that the build chose.
__attribute__((visibility("default"))) unsigned long C_GetFunctionList(void** list) {
  (void)list;
  return FAILING_MODULE_RESULT;
}
