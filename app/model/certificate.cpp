#include "app/model/certificate.h"

namespace kelvrin::app {
namespace {

constexpr Time kDay = Time{24} * 60 * 60;

}  // namespace

Validity ValidityAt(const Certificate& certificate, Time now) {
  if (now < certificate.not_before) return Validity::kNotYet;
  if (now > certificate.not_after) return Validity::kExpired;
  return certificate.not_after - now < kSoon * kDay ? Validity::kExpiresSoon : Validity::kValid;
}

int DaysLeft(const Certificate& certificate, Time now) {
  return static_cast<int>((certificate.not_after - now) / kDay);
}

}  // namespace kelvrin::app
