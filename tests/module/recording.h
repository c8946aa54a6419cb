// Turns the arguments of any function of the list into copies. The types tell what belongs
// together: bytes and their number, a template and its count, a buffer and its in/out length.
#pragma once

#include "tests/module/call.h"

namespace scripted {

inline void Record(Call&) {}

template <typename... Rest>
void Record(Call& call, CK_ATTRIBUTE* attributes, CK_ULONG count, Rest... rest);
template <typename... Rest>
void Record(Call& call, CK_MECHANISM* mechanism, Rest... rest);
template <typename... Rest>
void Record(Call& call, CK_BYTE* bytes, CK_ULONG length, Rest... rest);
template <typename... Rest>
void Record(Call& call, CK_BYTE* room, CK_ULONG* length, Rest... rest);
template <typename... Rest>
void Record(Call& call, CK_ULONG* room, CK_ULONG* length, Rest... rest);
template <typename... Rest>
void Record(Call& call, CK_OBJECT_HANDLE* room, CK_ULONG size, CK_ULONG* count, Rest... rest);
template <typename... Rest>
void Record(Call& call, CK_ULONG number, Rest... rest);
template <typename... Rest>
void Record(Call& call, CK_BYTE number, Rest... rest);
template <typename... Rest>
void Record(Call& call, CK_NOTIFY callback, Rest... rest);
template <typename Pointee, typename... Rest>
void Record(Call& call, Pointee* pointer, Rest... rest);

inline Argument Number(CK_ULONG number) {
  return {.kind = Argument::Kind::kNumber, .number = number};
}

inline Argument Room(const void* address, CK_ULONG size) {
  return {.kind = Argument::Kind::kRoom, .number = size, .address = address};
}

// A length that no caller can mean, such as the -1 of a refused attribute, is not followed.
inline Bytes CopyOf(const void* address, CK_ULONG length) {
  constexpr CK_ULONG kMostBytes = CK_ULONG{1} << 24;
  const auto* bytes = static_cast<const CK_BYTE*>(address);
  return address == nullptr || length > kMostBytes ? Bytes() : Bytes(bytes, bytes + length);
}

template <typename... Rest>
void Record(Call& call, CK_ATTRIBUTE* attributes, CK_ULONG count, Rest... rest) {
  Argument argument = {.kind = Argument::Kind::kTemplate, .number = count, .address = attributes};
  for (CK_ULONG i = 0; attributes != nullptr && i < count; ++i) {
    const CK_ATTRIBUTE& attribute = attributes[i];
    argument.attributes.push_back({attribute.type, attribute.pValue, attribute.ulValueLen,
                                   CopyOf(attribute.pValue, attribute.ulValueLen)});
  }
  call.arguments.push_back(argument);
  Record(call, rest...);
}

template <typename... Rest>
void Record(Call& call, CK_MECHANISM* mechanism, Rest... rest) {
  Argument argument = {.kind = Argument::Kind::kMechanism, .address = mechanism};
  if (mechanism != nullptr) {
    argument.number = mechanism->mechanism;
    argument.parameter_address = mechanism->pParameter;
    argument.parameter_length = mechanism->ulParameterLen;
    argument.bytes = CopyOf(mechanism->pParameter, mechanism->ulParameterLen);
  }
  call.arguments.push_back(argument);
  Record(call, rest...);
}

template <typename... Rest>
void Record(Call& call, CK_BYTE* bytes, CK_ULONG length, Rest... rest) {
  if (call.function == Function::C_GenerateRandom) {
    call.arguments.push_back(Room(bytes, length));
  } else {
    call.arguments.push_back({.kind = Argument::Kind::kBytes,
                              .number = length,
                              .address = bytes,
                              .bytes = CopyOf(bytes, length)});
  }
  Record(call, rest...);
}

template <typename... Rest>
void Record(Call& call, CK_BYTE* room, CK_ULONG* length, Rest... rest) {
  call.arguments.push_back(Room(room, length == nullptr ? 0 : *length));
  Record(call, rest...);
}

template <typename... Rest>
void Record(Call& call, CK_ULONG* room, CK_ULONG* length, Rest... rest) {
  if (call.function == Function::C_GenerateKeyPair) {  // two handles, neither of them read
    call.arguments.push_back({.kind = Argument::Kind::kPointer, .address = room});
    call.arguments.push_back({.kind = Argument::Kind::kPointer, .address = length});
  } else {
    call.arguments.push_back(Room(room, length == nullptr ? 0 : *length));
  }
  Record(call, rest...);
}

template <typename... Rest>
void Record(Call& call, CK_OBJECT_HANDLE* room, CK_ULONG size, CK_ULONG* count, Rest... rest) {
  call.arguments.push_back(Room(room, size));
  Record(call, count == nullptr ? CK_ULONG{0} : *count, rest...);
}

template <typename... Rest>
void Record(Call& call, CK_ULONG number, Rest... rest) {
  call.arguments.push_back(Number(number));
  Record(call, rest...);
}

template <typename... Rest>
void Record(Call& call, CK_BYTE number, Rest... rest) {
  call.arguments.push_back(Number(number));
  Record(call, rest...);
}

template <typename... Rest>
void Record(Call& call, CK_NOTIFY callback, Rest... rest) {
  call.arguments.push_back(
      {.kind = Argument::Kind::kPointer, .address = reinterpret_cast<const void*>(callback)});
  Record(call, rest...);
}

template <typename Pointee, typename... Rest>
void Record(Call& call, Pointee* pointer, Rest... rest) {
  call.arguments.push_back(
      {.kind = Argument::Kind::kPointer, .address = static_cast<const void*>(pointer)});
  Record(call, rest...);
}

}  // namespace scripted
