// The slot list with the number of entries it really has, for the walk inside init.
#pragma once

#include <p11-kit/pkcs11.h>

// Like list_slots, and tells how many entries the array has, which the count need not do.
//   allocated  out: entries of the array.
// Returns the array; the caller owns it (free).
CK_SLOT_ID* list_allocated_slots(CK_FUNCTION_LIST_PTR p11, CK_BBOOL token_present, CK_ULONG* count,
                                 CK_ULONG* allocated);
