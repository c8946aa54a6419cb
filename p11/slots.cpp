#include "p11/slots.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "p11/bringup.h"
#include "p11/diagnostics.h"

// Lists slots, telling how many entries the array has.
CK_SLOT_ID* list_allocated_slots(CK_FUNCTION_LIST_PTR p11, CK_BBOOL token_present, CK_ULONG* count,
                                 CK_ULONG* allocated) {
  CK_RV rv = p11->C_GetSlotList(token_present, nullptr, count);
  if (rv != CKR_OK) p11_error("C_GetSlotList(NULL)", rv);

  *allocated = *count;
  auto* slots = static_cast<CK_SLOT_ID*>(calloc(*allocated, sizeof(CK_SLOT_ID)));
  // No memory asked for may answer null as well, and that is no failure.
  if (slots == nullptr && *allocated != 0) {
    perror("calloc failed");
    exit(1);
  }

  rv = p11->C_GetSlotList(token_present, slots, count);
  if (rv != CKR_OK) p11_error("C_GetSlotList()", rv);
  return slots;
}

// Lists slots.
CK_SLOT_ID* list_slots(CK_FUNCTION_LIST_PTR p11, CK_BBOOL token_present, CK_ULONG* count) {
  CK_ULONG allocated = 0;
  return list_allocated_slots(p11, token_present, count, &allocated);
}

// Copies a slot's description.
CK_RV get_reader_name(CK_FUNCTION_LIST_PTR p11, CK_SLOT_ID slot, char* description) {
  CK_SLOT_INFO info = {};  // what a failed call leaves untouched reads as an empty description
  const CK_RV rv = p11->C_GetSlotInfo(slot, &info);
  if (rv != CKR_OK) p11_error("C_GetSlotInfo", rv);
  static_assert(sizeof(info.slotDescription) == kSlotDescriptionSize);
  memcpy(description, info.slotDescription, kSlotDescriptionSize);
  return rv;
}
