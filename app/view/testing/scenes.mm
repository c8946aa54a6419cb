#import "app/view/testing/scenes.h"

namespace kelvrin::app {
namespace {

constexpr Time kDay = 24 * 60 * 60;

// One line of pluginkit's about the extension at a path.
std::string Line(ShownWindow *shown, const std::string &mark, const std::string &path) {
  return mark + "    " + shown->system.here.extension_id +
         "(1.0.0)\t0A1B\t2027-01-02 03:04:05 +0000\t" + path + "\n";
}

void AnswerPluginkit(ShownWindow *shown, const std::string &lines) {
  shown->system.Answer("pluginkit", {.output = lines});
}

void PutCardIn(ShownWindow *shown, SlotState state) {
  shown->system.AnswerRegistered();
  shown->system.presence.readers = {{kReader, state}};
  shown->system.Change();
}

// Tries the RSA key, which takes three attempts.
void Try(ShownWindow *shown, const std::vector<Attempt> &attempts) {
  InsertCard(shown);
  shown->model.Try();
  for (const Attempt &attempt : attempts) shown->system.Answer(attempt);
}

Attempt Failed(const std::string &domain, int64_t code) {
  return {.end = Attempt::End::kFailed,
          .domain = domain,
          .code = code,
          .description = "The operation could not be completed."};
}

void ExpireAndExpireSoon(ShownWindow *shown) {
  Certificate expired = RsaCertificate("Zo\u0308e Wei\u00DF-Lo\u0301pez, signature");
  expired.not_after = shown->system.now - kDay;
  Certificate soon = EcCertificate("\u05D0\u05E0\u05D4 \u05DB\u05D4\u05DF, authentication");
  soon.issuer = "Erika Mustermann RSA";
  soon.not_after = shown->system.now + 12 * kDay;
  Certificate later = KeylessCertificate("Example Corporation Employees CA 4");
  later.not_before = shown->system.now + 5 * kDay;
  shown->system.Insert("4711", kReader, {soon, expired, later});
}

void BeElsewhere(ShownWindow *shown) {
  shown->system.here.application = "/Users/ann/Downloads/KelvrinToken.app";
  InsertCard(shown);
}

void BeInstalledTwice(ShownWindow *shown) {
  AnswerPluginkit(shown,
                  Line(shown, " ", shown->system.here.extension) +
                      Line(shown, " ",
                           "/Users/ann/Library/Developer/Archives/2027-01-02/Products/Applications/"
                           "KelvrinToken.app/Contents/PlugIns/KelvrinToken.appex"));
}

const std::vector<Scene> kScenes = {
    {"looking", State::kLooking, [](ShownWindow *) {}},
    {"no-extension", State::kNoExtension,
     [](ShownWindow *shown) {
       shown->system.here.extension.clear();
       shown->system.Change();
     }},
    {"not-in-applications", State::kNotInApplications, BeElsewhere},
    {"several-copies", State::kSeveralCopies, BeInstalledTwice},
    {"not-registered", State::kNotRegistered,
     [](ShownWindow *shown) { AnswerPluginkit(shown, "  (no matches)\n"); }},
    {"switched-off", State::kSwitchedOff,
     [](ShownWindow *shown) {
       AnswerPluginkit(shown, Line(shown, "-", shown->system.here.extension));
     }},
    {"readers-hidden", State::kReadersHidden,
     [](ShownWindow *shown) {
       shown->system.presence.shows_readers = false;
       shown->system.AnswerRegistered();
       shown->system.Change();
     }},
    {"no-reader", State::kNoReader, [](ShownWindow *shown) { shown->system.AnswerRegistered(); }},
    {"no-card", State::kNoCard, [](ShownWindow *shown) { PutCardIn(shown, SlotState::kEmpty); }},
    {"reading", State::kLooking, [](ShownWindow *shown) { PutCardIn(shown, SlotState::kProbing); }},
    {"no-token", State::kNoToken,
     [](ShownWindow *shown) {
       PutCardIn(shown, SlotState::kCard);
       shown->system.LetTimePass();
     }},
    {"another-extensions", State::kNoToken,
     [](ShownWindow *shown) {
       shown->system.presence.tokens = {{"com.apple.pivtoken:0123456789ABCDEF", kReader}};
       PutCardIn(shown, SlotState::kCard);
       shown->system.LetTimePass();
     }},
    {"mute-card", State::kMuteCard,
     [](ShownWindow *shown) {
       PutCardIn(shown, SlotState::kMute);
       shown->system.LetTimePass();
     }},
    {"no-certificates", State::kNoCertificates,
     [](ShownWindow *shown) {
       shown->system.Insert("4711", kReader, {});
       shown->system.LetTimePass();
       shown->system.Answer(shown->system.TokenId("4711"), std::vector<Certificate>());
     }},
    {"nothing-usable", State::kNothingUsable,
     [](ShownWindow *shown) {
       Certificate expired = RsaCertificate("Ann Example, signature");
       expired.not_after = shown->system.now - kDay;
       shown->system.Insert("4711", kReader,
                            {expired, KeylessCertificate("Example Corporation CA")});
     }},
    {"card-pulled", State::kNoCard,
     [](ShownWindow *shown) {
       Try(shown, {{}});
       shown->system.AnswerRegistered();
       shown->system.Pull("4711");
     }},
    {"ready", State::kReady, InsertCard},
    {"expired", State::kReady, ExpireAndExpireSoon},
    {"no-key", State::kReady,
     [](ShownWindow *shown) {
       InsertCard(shown);
       shown->model.Select(2);
     }},
    {"trying", State::kReady, [](ShownWindow *shown) { Try(shown, {{}}); }},
    {"worked", State::kReady, [](ShownWindow *shown) { Try(shown, {{}, {}, {}}); }},
    {"pin-refused", State::kReady,
     [](ShownWindow *shown) { Try(shown, {Failed("CryptoTokenKit", -5)}); }},
    {"pin-not-entered", State::kReady,
     [](ShownWindow *shown) { Try(shown, {Failed("CryptoTokenKit", -4)}); }},
    {"wrong-result", State::kReady,
     [](ShownWindow *shown) { Try(shown, {{}, {.end = Attempt::End::kWrongResult}}); }},
    {"unsupported", State::kReady,
     [](ShownWindow *shown) {
       constexpr Attempt::End kLacks = Attempt::End::kUnsupported;
       Try(shown, {{.end = kLacks}, {.end = kLacks}, {.end = kLacks}});
     }},
    {"cancelled", State::kReady,
     [](ShownWindow *shown) {
       Try(shown, {{}});
       shown->model.CancelTrial();
     }},
    {"no-reason", State::kReady,
     [](ShownWindow *shown) { Try(shown, {Failed("CryptoTokenKit", -2)}); }},
    {"failed", State::kReady,
     [](ShownWindow *shown) {
       Try(shown, {{}, {.end = Attempt::End::kUnsupported}, Failed("NSOSStatusErrorDomain", -50)});
     }},
};

}  // namespace

const std::vector<Scene> &Scenes() { return kScenes; }

void InsertCard(ShownWindow *shown) {
  shown->system.Insert("4711", kReader,
                       {RsaCertificate("Ann Example, signature"), EcCertificate("Ann Example"),
                        KeylessCertificate("Example Corporation CA")});
}

}  // namespace kelvrin::app
