// What is measured. Each function fills one section of the report or several, and throws
// std::runtime_error when something cannot be measured at all.
#ifndef KELVRIN_BENCH_SECTIONS_H_
#define KELVRIN_BENCH_SECTIONS_H_

#include "bench/cards.h"
#include "bench/report.h"
#include "bench/rounds.h"

namespace kelvrin::bench {

// Certificates on the cards: the two that sign, and those that set-ups are timed on.
inline constexpr int kFewCertificates = 2;
inline constexpr int kManyCertificates = 33;
inline constexpr int kSetupCertificates[] = {2, 5, 10, 20};

// What a request costs in the extension alone: against a module that does nothing.
Section MeasureRequests(const Cards& cards, Rounds& rounds);

// Making a token, over cards with more and more certificates.
Section MeasureSetup(const Cards& cards, Rounds& rounds);

// What 10 000 key agreements leave behind.
Section MeasureAgreements(const Cards& cards, const RawModule& raw);

// Signatures by the module itself, through the extension and through other libraries, for each kind
// of key on the small card and on the large one. May leave the module finalised.
Report MeasureSignatures(const Cards& cards, const RawModule& raw, Rounds& rounds);

}  // namespace kelvrin::bench

#endif  // KELVRIN_BENCH_SECTIONS_H_
