// Texts for people: what modules say is shown without control characters and as valid UTF-8.
#pragma once

#include <p11-kit/pkcs11.h>

#include <string>
#include <string_view>
#include <vector>

#include "encoding/bytes.h"

namespace kelvrin::modulecheck {

using encoding::Bytes;
using encoding::ByteView;

// Two hexadecimal digits a byte, lower case.
std::string Hex(ByteView bytes);

// The text as a terminal can show it: control characters become blanks, bytes that are not UTF-8
// question marks.
std::string Printable(std::string_view text);

// The same of an attribute's bytes.
std::string Text(ByteView bytes);

// The printable text in quotation marks.
std::string Quoted(std::string_view text);

// A fixed-size field of a module's record: up to the first NUL, without the blanks at the end.
std::string_view Field(ByteView field);

// "CKR_OPERATION_ACTIVE (0x90)".
std::string ResultText(CK_RV result);

// "CKM_ECDSA", or the number in hexadecimal when the mechanism has no known name.
std::string MechanismText(CK_MECHANISM_TYPE mechanism);

// The elements with this between them.
std::string Join(const std::vector<std::string>& elements, std::string_view between);

// "1 certificate", "2 certificates".
std::string Counted(std::size_t count, std::string_view noun);

// The text as XML writes it.
std::string Xml(std::string_view text);

bool IsAscii(ByteView bytes);

}  // namespace kelvrin::modulecheck
