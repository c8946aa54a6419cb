// The set-up of a token, over cards with more and more certificates.
#include "bench/card_reading.h"
#import "bench/extension.h"
#include "bench/sections.h"
#import "platform/linux/ctk/MainBundle.h"

namespace kelvrin::bench {
namespace {

// The ten-fold number of certificates takes no more than the ten-fold time.
constexpr Target kGrowthTarget = {Target::Bound::kAtMost, 10};
// Were the set-up quadratic, it would be 2; 1 is linear, the rest is room for a restless machine.
constexpr Target kOneMoreTarget = {Target::Bound::kAtMost, 1.3};

// A set-up is a token made by the extension; most of that is the classes that stand in for the
// system's and decode certificates. Its calls alone are what the adapter and the module take.
std::string SetupName(int certificates) {
  return "set-up, " + std::to_string(certificates) + " certificates";
}
std::string CallsName(int certificates) {
  return "its calls alone, " + std::to_string(certificates) + " certificates";
}

void InsertCardOf(const Cards &cards, int certificates) {
  @autoreleasepool {
    TKSetMainBundle([NSString stringWithUTF8String:cards.Bundle(certificates).c_str()]);
  }
}

void AddSetup(const Cards &cards, int certificates, Rounds &rounds) {
  // A certificate and its key each make a keychain item.
  const NSUInteger items = 2 * static_cast<NSUInteger>(certificates);
  rounds.AddTimed(
      SetupName(certificates), [items] { return SecondsOfSetup(items); },
      [&cards, certificates] { InsertCardOf(cards, certificates); });
  const std::filesystem::path module = Cards::ModuleOf(cards.Bundle(certificates));
  rounds.AddTimed(CallsName(certificates),
                  [module, certificates] { return SecondsOfCardReading(module, certificates); });
}

Row FactorRow(const std::string &name, const Samples &factors, Target target) {
  Row row = TimeRow(name, factors);
  row.quantity = Quantity::kFactor;
  row.target = target;
  return row;
}

// What one certificate more takes, between two numbers of certificates.
Samples PerCertificate(const Samples &fewer, const Samples &more, int difference) {
  Samples seconds;
  for (std::size_t i = 0; i < fewer.size(); ++i) {
    seconds.push_back((more.at(i) - fewer[i]) / difference);
  }
  return seconds;
}

using Name = std::string (*)(int certificates);

void AddRows(Name name, std::map<std::string, Samples> &samples, std::vector<Row> *rows) {
  for (const int certificates : kSetupCertificates) {
    rows->push_back(TimeRow(name(certificates), samples[name(certificates)]));
  }
  for (const int certificates : kSetupCertificates) {
    Samples each = samples[name(certificates)];
    for (double &seconds : each) seconds /= certificates;
    rows->push_back(TimeRow("  for one of " + std::to_string(certificates), each));
  }
  rows->push_back(FactorRow("  20 certificates against 2",
                            Ratios(samples[name(20)], samples[name(2)]), kGrowthTarget));
  rows->push_back(FactorRow("  one more from 10 to 20 against one more from 5 to 10",
                            Ratios(PerCertificate(samples[name(10)], samples[name(20)], 10),
                                   PerCertificate(samples[name(5)], samples[name(10)], 5)),
                            kOneMoreTarget));
}

}  // namespace

Section MeasureSetup(const Cards &cards, Rounds &rounds) {
  for (const int certificates : kSetupCertificates) AddSetup(cards, certificates, rounds);
  std::map<std::string, Samples> samples = rounds.Run();
  Section section = {"Set-up of a token through the adapter", {}};
  AddRows(SetupName, samples, &section.rows);
  AddRows(CallsName, samples, &section.rows);
  return section;
}

}  // namespace kelvrin::bench
