// Removing secrets from memory.
#ifndef KELVRIN_ADAPTER_WIPE_H_
#define KELVRIN_ADAPTER_WIPE_H_

#include <p11-kit/pkcs11.h>

#include <span>

namespace kelvrin::adapter {

// Overwrites the bytes with zeros, which no optimiser may leave out.
inline void Wipe(std::span<CK_BYTE> bytes) {
  for (volatile CK_BYTE& byte : bytes) byte = 0;
}

}  // namespace kelvrin::adapter

#endif  // KELVRIN_ADAPTER_WIPE_H_
