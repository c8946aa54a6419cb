#include "adapter/outputs.h"

#include <algorithm>
#include <limits>
#include <vector>

#include "adapter/bytes.h"

namespace kelvrin::adapter {
namespace {

// How much longer than its input a result is at most offered room for at first, and how much longer
// it can be at all.
constexpr CK_ULONG kUsualGrowth = CK_ULONG{64} << 10;
constexpr CK_ULONG kMaxGrowth = CK_ULONG{64} << 20;

CK_ULONG Sum(CK_ULONG first, CK_ULONG second) {
  return first > std::numeric_limits<CK_ULONG>::max() - second
             ? std::numeric_limits<CK_ULONG>::max()
             : first + second;
}

// The module's memory for one call.
class Scratch {
 public:
  // Never empty: a null pointer would ask for the size.
  explicit Scratch(CK_ULONG room) : bytes_(std::max<CK_ULONG>(room, 1)), size_(room) {}
  ~Scratch() { Wipe(bytes_); }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;

  CK_RV Run(const OutputCall& call) { return call(bytes_.data(), &size_); }
  CK_ULONG size() const { return size_; }
  void CopyTo(CK_BYTE* output) const { std::copy_n(bytes_.begin(), size_, output); }

 private:
  std::vector<CK_BYTE> bytes_;
  CK_ULONG size_;
};

// One call with `room` bytes of room. `needed` gets the length after CKR_OK and
// CKR_BUFFER_TOO_SMALL.
CK_RV RunOnce(const OutputCall& call, CK_ULONG room, CK_BYTE* output, CK_ULONG* needed) {
  Scratch scratch(room);
  const CK_RV result = scratch.Run(call);
  *needed = scratch.size();
  if (result != CKR_OK) return result;
  if (scratch.size() > room) return CKR_DEVICE_ERROR;
  scratch.CopyTo(output);
  return CKR_OK;
}

}  // namespace

CK_RV WriteOutput(const OutputCall& call, CK_ULONG input_size, CK_BYTE* output,
                  CK_ULONG* output_size) {
  if (output_size == nullptr) return CKR_ARGUMENTS_BAD;
  CK_ULONG needed = 0;
  CK_RV result = CKR_OK;
  if (output == nullptr) {
    result = call(nullptr, &needed);
  } else {
    // A caller may claim any room.
    const CK_ULONG room = std::min(*output_size, Sum(input_size, kUsualGrowth));
    result = RunOnce(call, room, output, &needed);
    const bool can_have_more =
        needed > room && needed <= *output_size && needed <= Sum(input_size, kMaxGrowth);
    if (result == CKR_BUFFER_TOO_SMALL && can_have_more) {
      result = RunOnce(call, needed, output, &needed);
    }
  }
  if (result != CKR_OK && result != CKR_BUFFER_TOO_SMALL) return result;
  if (needed > Sum(input_size, kMaxGrowth)) return CKR_DEVICE_ERROR;
  *output_size = needed;
  return result;
}

}  // namespace kelvrin::adapter
