// The PKCS#11 calls of a token's set-up, without what the system's classes make of them.
#ifndef KELVRIN_BENCH_CARD_READING_H_
#define KELVRIN_BENCH_CARD_READING_H_

#include <filesystem>

namespace kelvrin::bench {

// Brings the module up, reads certificates and keys as the extension does, and finalises it.
//   library       the bundle's module.
//   certificates  how many there are.
// Returns the seconds until the last was read; a negative number on failure.
double SecondsOfCardReading(const std::filesystem::path& library, int certificates);

}  // namespace kelvrin::bench

#endif  // KELVRIN_BENCH_CARD_READING_H_
