// The fuzzer's second target: the one reader of certificates, with OpenSSL as its oracle.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "encoding/testing/certificate_comparison.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto comparison = kelvrin::encoding::CompareWithOpenssl({data, data + size});
  if (comparison.difference.empty()) return 0;
  std::fprintf(stderr, "read differently: %s\n", comparison.difference.c_str());
  std::abort();
}
