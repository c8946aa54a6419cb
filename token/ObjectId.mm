#import "token/ObjectId.h"

#include <stdint.h>
#include <stdlib.h>
#include <string.h>

static_assert(sizeof(ObjectIdBuffer) == 520, "the copy's bound is 512 bytes and the length");

NSData *idToData(int kind, const void *ckaID, size_t len) {
  if (ckaID == nullptr || len == SIZE_MAX) return nil;
  auto *buffer = static_cast<CK_BYTE *>(malloc(len + 1));
  if (buffer == nullptr) return nil;
  buffer[0] = static_cast<CK_BYTE>(kind);
  memcpy(buffer + 1, ckaID, len);
  NSData *data = [NSData dataWithBytes:buffer length:len + 1];
  free(buffer);
  return data;
}

ObjectIdBuffer dataToId(NSData *objectID) {
  ObjectIdBuffer record = {};
  const size_t length = [objectID length];
  record.length = length;
  // The bound is the whole record, deliberately: from 513 bytes on the copy overwrites the length.
  if (length > sizeof(record)) abort();
  auto *start = reinterpret_cast<CK_BYTE *>(&record);
  if (length > 0) memcpy(start, [objectID bytes], length);
  if (record.length != 0) {
    record.length -= 1;
    // An overwritten length can say anything; the shift stays within the record.
    const size_t room = sizeof(record.bytes);
    memmove(start, start + 1, record.length < room ? record.length : room);
  }
  return record;
}
