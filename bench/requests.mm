// What a request costs in the extension alone.
#import "bench/extension.h"
#include "bench/sections.h"
#include "platform/linux/log/log_recorder.h"
#import "tests/endtoend/real_card.h"
#import "token/TokenSession.h"

namespace kelvrin::bench {
namespace {

constexpr Target kRequestTarget = {Target::Bound::kAtMost, 5e-6};
constexpr std::size_t kModulusSize = 256;
constexpr std::size_t kDigestSize = 32;

enum class Log {
  kOff,
  kOn,  // lines are made, and dropped where the system would take them over
};

void SwitchLog(Log log) {
  for (const os_log_type_t type : {OS_LOG_TYPE_DEFAULT, OS_LOG_TYPE_INFO, OS_LOG_TYPE_ERROR}) {
    oslog::set_enabled(type, log == Log::kOn);
  }
}

struct Variant {
  std::string name;
  std::function<bool()> call;
};

std::vector<Variant> Variants(TokenSession *session) {
  const SigningRequest block = MakeRequest(endtoend::Bytes(kModulusSize, 0x5A), endtoend::RsaKey(),
                                           kSecKeyAlgorithmRSASignatureRaw);
  const SigningRequest digest = MakeRequest(endtoend::Bytes(kDigestSize, 0x5A), endtoend::EcKey(),
                                            kSecKeyAlgorithmECDSASignatureDigestX962);
  const auto sign = [session](const SigningRequest &request) -> bool {
    @autoreleasepool {
      return Sign(session, request) != nil;
    }
  };
  const auto supports = [session, block]() -> bool {
    @autoreleasepool {
      return [session tokenSession:session
                 supportsOperation:TKTokenOperationSignData
                          usingKey:block.key
                         algorithm:block.algorithm];
    }
  };
  return {{"signing request, 256 bytes", [=] { return sign(block); }},
          {"signing request, 32 bytes", [=] { return sign(digest); }},
          {"support check", supports}};
}

}  // namespace

Section MeasureRequests(const Cards &cards, Rounds &rounds) {
  const Extension extension(cards.NullBundle());
  const std::vector<Variant> variants = Variants(extension.session());
  for (const Variant &variant : variants) {
    rounds.Add(variant.name + ", log off", variant.call, [] { SwitchLog(Log::kOff); });
    rounds.Add(variant.name + ", log on", variant.call, [] { SwitchLog(Log::kOn); });
  }
  std::map<std::string, Samples> samples = rounds.Run();
  SwitchLog(Log::kOff);

  Section section = {"The extension alone, before a module that does nothing", {}};
  for (const Variant &variant : variants) {
    Row row = TimeRow(variant.name + ", log off", samples[variant.name + ", log off"]);
    row.target = kRequestTarget;
    section.rows.push_back(row);
  }
  for (const Variant &variant : variants) {
    section.rows.push_back(TimeRow(variant.name + ", log on", samples[variant.name + ", log on"]));
  }
  return section;
}

}  // namespace kelvrin::bench
