// Every run of the fuzzer begins with a new adapter.
#ifndef KELVRIN_FUZZ_ENTRY_FOR_FUZZING_H_
#define KELVRIN_FUZZ_ENTRY_FOR_FUZZING_H_

namespace kelvrin::fuzz {

// Drops the adapter and all that it remembers of the module.
void ForgetAdapter();

}  // namespace kelvrin::fuzz

#endif  // KELVRIN_FUZZ_ENTRY_FOR_FUZZING_H_
