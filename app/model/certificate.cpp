#include "app/model/certificate.h"

namespace kelvrin::app {
namespace {

constexpr Time kDay = Time{24} * 60 * 60;

}  // namespace

Validity ValidityAt(const Certificate& certificate, Time now) {
  if (certificate.not_after == 0) return Validity::kUnknown;
  if (now < certificate.not_before) return Validity::kNotYet;
  if (now > certificate.not_after) return Validity::kExpired;
  return certificate.not_after - now < kSoon * kDay ? Validity::kExpiresSoon : Validity::kValid;
}

bool IsUsable(const Certificate& certificate, Time now) {
  const Validity validity = ValidityAt(certificate, now);
  return certificate.has_key && validity != Validity::kNotYet && validity != Validity::kExpired;
}

int DaysLeft(const Certificate& certificate, Time now) {
  return static_cast<int>((certificate.not_after - now) / kDay);
}

}  // namespace kelvrin::app
