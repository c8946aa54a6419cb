// What the scripted module keeps of one call: deep copies of everything that it was given.
#pragma once

#include <p11-kit/pkcs11.h>

#include <string>
#include <vector>

#include "tests/module/functions.h"

namespace scripted {

using Bytes = std::vector<CK_BYTE>;

// A text's bytes, without the terminator.
Bytes ToBytes(const std::string& text);

struct AttributeCopy {
  CK_ATTRIBUTE_TYPE type = 0;
  const void* address = nullptr;  // pValue
  CK_ULONG length = 0;            // ulValueLen on entry
  Bytes bytes = {};               // what lay at pValue on entry
};

struct Argument {
  enum class Kind {
    kNumber,     // number
    kPointer,    // address of something the module may write, or null; nothing is read from it
    kBytes,      // address, number (length), bytes
    kRoom,       // address of an output buffer, number (its size as the caller gave it)
    kMechanism,  // address, number (mechanism type), parameter's address, length and bytes
    kTemplate,   // address, number (attribute count), attributes
  };
  Kind kind = Kind::kNumber;
  CK_ULONG number = 0;
  const void* address = nullptr;
  const void* parameter_address = nullptr;
  CK_ULONG parameter_length = 0;
  Bytes bytes = {};  // kBytes: the bytes; kMechanism: the parameter's
  std::vector<AttributeCopy> attributes = {};
};

// Arguments that belong together are one: a buffer with its length, a template with its count.
// C_FindObjects is (session, room for handles, count on entry).
struct Call {
  Function function = Function::C_Initialize;
  std::vector<Argument> arguments = {};

  // One line, as in
  //   C_Initialize(NULL)
  //   C_GetSlotList(0, NULL[0])                             no list, count 0 on entry
  //   C_OpenSession(5, 6, NULL, NULL, out)
  //   C_FindObjectsInit(7, {0x0=0200000000000000, 0x102=01})
  //   C_FindObjects(7, room[10], 10)
  //   C_GetAttributeValue(7, 12, {0x3[1024], 0x102[1024]})  what is asked for, with its room
  //   C_SignInit(7, {0x40}, 12)                             no parameter
  //   C_SignInit(7, {0x43 50020000...}, 12)                 parameter in hexadecimal
  //   C_Sign(7, <616263>, room[1024])
  std::string Text() const;
};

}  // namespace scripted
