// What is measured: benchmarks of Google's library, in sections that are processes of their own.
#pragma once

#include <functional>
#include <memory>
#include <string>

namespace kelvrin::bench {

// What the benchmarks of a section work on; it has to live until they have run.
using Fixture = std::shared_ptr<void>;

// Each registers the benchmarks of one section. They throw std::runtime_error when something cannot
// be measured at all.

// What a request costs in the extension alone: against a module that does nothing.
Fixture RegisterRequests();
// Making a token, over cards with more and more certificates.
Fixture RegisterSetups();
// What key agreements take and leave behind.
Fixture RegisterAgreements();
// Signatures by the module itself, through the extension and through other libraries, on a small
// card and on a large one.
Fixture RegisterRsaSignatures();
Fixture RegisterEcSignatures();

// Registers a benchmark whose iteration is one call; one that returns false makes the run fail.
// `prepare`, if any, runs before each repetition, outside its time.
void Register(const std::string& name, const std::function<bool()>& call,
              const std::function<void()>& prepare = {});

// The same for an action that takes its own time: it returns the seconds that count, or a negative
// number when it failed.
void RegisterTimed(const std::string& name, const std::function<double()>& call,
                   const std::function<void()>& prepare = {});

}  // namespace kelvrin::bench
