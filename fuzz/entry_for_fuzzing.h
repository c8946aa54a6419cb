// Every run of the fuzzer begins with two new copies of the adapter over one module.
#ifndef KELVRIN_FUZZ_ENTRY_FOR_FUZZING_H_
#define KELVRIN_FUZZ_ENTRY_FOR_FUZZING_H_

namespace kelvrin::fuzz {

inline constexpr int kCopies = 2;

// From now on the function list is the other copy's.
void SwitchCopy();

// Drops both copies and all that they remember of the module; the first one's turn is next.
void ForgetAdapters();

}  // namespace kelvrin::fuzz

#endif  // KELVRIN_FUZZ_ENTRY_FOR_FUZZING_H_
