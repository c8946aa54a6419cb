#include "app/model/trial.h"

#include <algorithm>
#include <array>
#include <utility>

namespace kelvrin::app {
namespace {

constexpr char kTokenErrors[] = "CryptoTokenKit";
constexpr int kCommunicationError = -2;  // also what the system makes of a failure without an error

// The errors that have a sentence of their own.
struct KnownError {
  const char* domain;
  int64_t code;
  Verdict verdict;
};

constexpr std::array kKnownErrors = {
    KnownError{kTokenErrors, -4, Verdict::kPinNotEntered},
    KnownError{kTokenErrors, -5, Verdict::kPinRefused},
    KnownError{kTokenErrors, -6, Verdict::kKeyNotFound},
    KnownError{kTokenErrors, -7, Verdict::kCardGone},
    KnownError{"NSOSStatusErrorDomain", -128, Verdict::kPinNotEntered},
    KnownError{"NSOSStatusErrorDomain", -25293, Verdict::kPinRefused},
    KnownError{"NSOSStatusErrorDomain", -25300, Verdict::kKeyNotFound},
    KnownError{"com.apple.LocalAuthentication", -1, Verdict::kPinRefused},
    KnownError{"com.apple.LocalAuthentication", -2, Verdict::kPinNotEntered},
};

Verdict VerdictOfError(const Attempt& attempt, bool is_first) {
  const auto* known = std::ranges::find_if(kKnownErrors, [&](const KnownError& error) {
    return attempt.domain == error.domain && attempt.code == error.code;
  });
  if (known != kKnownErrors.end()) return known->verdict;
  if (is_first && attempt.domain == kTokenErrors && attempt.code == kCommunicationError) {
    return Verdict::kNoReason;
  }
  return Verdict::kFailed;
}

bool Worked(const Trial::Result& result) { return result.attempt.end == Attempt::End::kWorked; }

}  // namespace

std::vector<Scheme> SchemesFor(const Certificate& certificate) {
  std::vector<Scheme> schemes;
  if (!certificate.has_key) return schemes;
  if (certificate.key_type == KeyType::kRsa) {
    if (certificate.can_sign) schemes = {Scheme::kPkcs1, Scheme::kPss};
    if (certificate.can_decrypt) schemes.push_back(Scheme::kDecryption);
  } else if (certificate.key_type == KeyType::kEllipticCurve && certificate.can_sign) {
    schemes = {Scheme::kEcdsa};
  }
  return schemes;
}

std::optional<Verdict> VerdictOf(const Attempt& attempt, bool is_first) {
  switch (attempt.end) {
    case Attempt::End::kWorked:
    case Attempt::End::kUnsupported:
      return std::nullopt;
    case Attempt::End::kWrongResult:
      return Verdict::kWrongResult;
    case Attempt::End::kNoKey:
      return Verdict::kKeyNotFound;
    case Attempt::End::kFailed:
      break;
  }
  return VerdictOfError(attempt, is_first);
}

Trial::Trial(System* system, Certificate certificate, std::function<void()> changed)
    : system_(system),
      certificate_(std::move(certificate)),
      changed_(std::move(changed)),
      schemes_(SchemesFor(certificate_)) {
  TryNext();
}

std::optional<Scheme> Trial::running() const {
  if (verdict_) return std::nullopt;
  return schemes_[done()];
}

// Begins the next scheme; after the last one the trial has its verdict.
void Trial::TryNext() {
  if (done() < count()) {
    task_ = system_->Try(certificate_, schemes_[done()],
                         [this](const Attempt& attempt) { Take(attempt); });
  } else {
    verdict_ = std::ranges::any_of(results_, Worked) ? Verdict::kWorked : Verdict::kUnsupported;
  }
}

void Trial::Take(const Attempt& attempt) {
  const std::optional<Verdict> verdict = VerdictOf(attempt, std::ranges::none_of(results_, Worked));
  results_.push_back({schemes_[done()], attempt});
  if (verdict) {
    End(*verdict);
    return;
  }
  TryNext();
  changed_();
}

void Trial::End(Verdict verdict) {
  verdict_ = verdict;
  task_.reset();
  changed_();
}

}  // namespace kelvrin::app
