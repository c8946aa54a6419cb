#include "tests/module/call.h"

#include <sstream>

namespace scripted {
namespace {

std::string Hex(const Bytes& bytes) {
  static const char kDigits[] = "0123456789abcdef";
  std::string text;
  for (CK_BYTE byte : bytes) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

std::string Sized(const char* what, CK_ULONG size) {
  return std::string(what) + "[" + std::to_string(size) + "]";
}

std::string HexNumber(CK_ULONG number) {
  std::ostringstream text;
  text << "0x" << std::hex << number;
  return text.str();
}

// This one fills the template; for all others its values are input.
bool FillsTemplate(Function function) { return function == Function::C_GetAttributeValue; }

std::string TemplateText(const Argument& argument, bool filled) {
  if (argument.address == nullptr) return Sized("NULL", argument.number);
  std::string text = "{";
  for (const AttributeCopy& attribute : argument.attributes) {
    if (text.size() > 1) text += ", ";
    text += HexNumber(attribute.type);
    if (attribute.address == nullptr) {
      text += "=" + Sized("NULL", attribute.length);
    } else {
      text += filled ? Sized("", attribute.length) : "=" + Hex(attribute.bytes);
    }
  }
  return text + "}";
}

std::string MechanismText(const Argument& argument) {
  if (argument.address == nullptr) return "NULL";
  std::string text = "{" + HexNumber(argument.number);
  if (argument.parameter_address != nullptr) {
    text += " " + Hex(argument.bytes);
  } else if (argument.parameter_length != 0) {
    text += " " + Sized("NULL", argument.parameter_length);
  }
  return text + "}";
}

std::string ArgumentText(const Argument& argument, Function function) {
  switch (argument.kind) {
    case Argument::Kind::kNumber:
      return std::to_string(argument.number);
    case Argument::Kind::kPointer:
      return argument.address == nullptr ? "NULL" : "out";
    case Argument::Kind::kBytes:
      if (argument.address == nullptr) return Sized("NULL", argument.number);
      return "<" + Hex(argument.bytes) + ">";
    case Argument::Kind::kRoom:
      return Sized(argument.address == nullptr ? "NULL" : "room", argument.number);
    case Argument::Kind::kMechanism:
      return MechanismText(argument);
    case Argument::Kind::kTemplate:
      return TemplateText(argument, FillsTemplate(function));
  }
  return "";
}

}  // namespace

const char* FunctionName(Function function) {
#define SCRIPTED_NAME(name) #name,
  static const char* const kNames[] = {SCRIPTED_FUNCTIONS(SCRIPTED_NAME)};
#undef SCRIPTED_NAME
  return kNames[static_cast<size_t>(function)];
}

Bytes ToBytes(const std::string& text) { return Bytes(text.begin(), text.end()); }

std::string Call::Text() const {
  std::string text = FunctionName(function);
  text += "(";
  for (size_t i = 0; i < arguments.size(); ++i) {
    if (i > 0) text += ", ";
    text += ArgumentText(arguments[i], function);
  }
  return text + ")";
}

}  // namespace scripted
