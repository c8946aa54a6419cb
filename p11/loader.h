// Opens a PKCS#11 module and hands out its function list; closes it again. The one place that
// touches the dynamic linker. Despite their names the two functions are this program's own. They
// take no lock: modules are loaded on one thread at a time.
#pragma once

#include <p11-kit/pkcs11.h>

// Opens the module and has its C_GetFunctionList fill in the function list.
//   path           file path of the module's dynamic library; null yields null.
//   function_list  receives the module's list; usable while the module stays open.
// Returns a module handle that the caller owns and gives back to C_UnloadModule, or null. Standard
// error tells why a library did not open or did not give its list; a null path, a lack of memory
// and a library without C_GetFunctionList, which stays open, go without a word. Never calls
// C_Initialize.
void* C_LoadModule(const char* path, CK_FUNCTION_LIST_PTR_PTR function_list);

// Closes the module's library and frees the handle, which must not be used afterwards. Does not
// call C_Finalize.
//   module  a handle from C_LoadModule.
// Returns CKR_OK; CKR_ARGUMENTS_BAD for null or a record that is no module handle;
// CKR_FUNCTION_FAILED when the library cannot be closed (the handle stays valid then).
CK_RV C_UnloadModule(void* module);
