// What is said while a key is tried and afterwards, in both languages.
#include <gtest/gtest.h>

#include "app/model/testing/scripted_system.h"
#include "app/text/testing/strings_file.h"

namespace kelvrin::app {
namespace {

using AttemptEnd = Attempt::End;

// A trial of a key that was answered like that.
class TriedKey {
 public:
  TriedKey(const Certificate& certificate, const std::vector<Attempt>& attempts)
      : trial_(&system_, certificate, [] {}) {
    for (const Attempt& attempt : attempts) EXPECT_TRUE(system_.Answer(attempt));
  }

  Trial& trial() { return trial_; }
  Both said() const {
    return InBoth([this](const Texts& texts) { return texts.TrialSentence(trial_); });
  }

 private:
  ScriptedSystem system_;
  Trial trial_;
};

Both AfterAttempts(const std::vector<Attempt>& attempts) {
  return TriedKey(RsaCertificate("Ann"), attempts).said();
}

Attempt TokenError(int64_t code) {
  return {.end = AttemptEnd::kFailed,
          .domain = "CryptoTokenKit",
          .code = code,
          .description = "It was not done"};
}

const Attempt kItWorked = {};
const Attempt kNotSupported = {.end = AttemptEnd::kUnsupported};

TEST(TrialTextTest, WhileItRuns) {
  EXPECT_EQ(AfterAttempts({}),
            (Both{"Trying “Ann”: PKCS#1 signature (1 of 3). macOS may ask for the PIN.",
                  "„Ann“ wird ausprobiert: PKCS#1-Signatur (1 von 3). macOS fragt dabei vielleicht "
                  "nach der PIN."}));
  EXPECT_EQ(AfterAttempts({kItWorked}).english,
            "Trying “Ann”: PSS signature (2 of 3). macOS may ask for the PIN.");
  EXPECT_EQ(AfterAttempts({kItWorked, kItWorked}),
            (Both{"Trying “Ann”: decryption (3 of 3). macOS may ask for the PIN.",
                  "„Ann“ wird ausprobiert: Entschlüsselung (3 von 3). macOS fragt dabei vielleicht "
                  "nach der PIN."}));
  EXPECT_EQ(TriedKey(EcCertificate("Bob"), {}).said().german,
            "„Bob“ wird ausprobiert: ECDSA-Signatur (1 von 1). macOS fragt dabei vielleicht nach "
            "der PIN.");
}

TEST(TrialTextTest, Worked) {
  EXPECT_EQ(AfterAttempts({kItWorked, kItWorked, kItWorked}),
            (Both{"“Ann” works. Done and verified: PKCS#1 signature, PSS signature, decryption.",
                  "„Ann“ geht. Ausgeführt und geprüft: PKCS#1-Signatur, PSS-Signatur, "
                  "Entschlüsselung."}));
  EXPECT_EQ(
      AfterAttempts({kItWorked, kNotSupported, kNotSupported}),
      (Both{"“Ann” works. Done and verified: PKCS#1 signature. Not supported by this card: PSS "
            "signature, decryption.",
            "„Ann“ geht. Ausgeführt und geprüft: PKCS#1-Signatur. Von dieser Karte nicht "
            "unterstützt: PSS-Signatur, Entschlüsselung."}));
  EXPECT_EQ(TriedKey(EcCertificate("Bob"), {kItWorked}).said(),
            (Both{"“Bob” works. Done and verified: ECDSA signature.",
                  "„Bob“ geht. Ausgeführt und geprüft: ECDSA-Signatur."}));
}

TEST(TrialTextTest, Unsupported) {
  EXPECT_EQ(
      AfterAttempts({kNotSupported, kNotSupported, kNotSupported}),
      (Both{"“Ann”: nothing could be tried; the card supports none of the schemes for this key.",
            "„Ann“: es gab nichts auszuprobieren; die Karte unterstützt keines der Verfahren für "
            "diesen Schlüssel."}));
}

TEST(TrialTextTest, RefusedPin) {
  EXPECT_EQ(
      AfterAttempts({TokenError(-5)}),
      (Both{
          "“Ann”: the card refused the PIN. Nothing more was tried, so that no further attempt is "
          "used up.",
          "„Ann“: die Karte hat die PIN abgelehnt. Mehr wurde nicht versucht, damit kein weiterer "
          "Versuch verbraucht wird."}));
  EXPECT_EQ(
      AfterAttempts({kNotSupported, kItWorked, TokenError(-5)}).english,
      "“Ann”: the card refused the PIN. Nothing more was tried, so that no further attempt is used "
      "up. Before that, this worked: PSS signature. Not supported by this card: PKCS#1 "
      "signature.");
}

TEST(TrialTextTest, NoReason) {
  EXPECT_EQ(
      AfterAttempts({TokenError(-2)}),
      (Both{"“Ann”: the card did nothing and macOS tells no reason; most often the PIN was wrong. "
            "Nothing more was tried, so that no further attempt is used up.",
            "„Ann“: die Karte hat nichts getan, und macOS nennt keinen Grund; meist war die PIN "
            "falsch. Mehr wurde nicht versucht, damit kein weiterer Versuch verbraucht "
            "wird."}));
}

TEST(TrialTextTest, PinNotEntered) {
  EXPECT_EQ(AfterAttempts({TokenError(-4)}),
            (Both{"“Ann”: no PIN was entered, which ended the trial.",
                  "„Ann“: es wurde keine PIN eingegeben; damit endete der Versuch."}));
  EXPECT_EQ(AfterAttempts({kItWorked, TokenError(-4)}).english,
            "“Ann”: no PIN was entered, which ended the trial. Before that, this worked: PKCS#1 "
            "signature.");
}

TEST(TrialTextTest, CardGone) {
  EXPECT_EQ(AfterAttempts({TokenError(-7)}),
            (Both{"The card was taken out while “Ann” was being tried.",
                  "Die Karte wurde gezogen, während „Ann“ ausprobiert wurde."}));
  EXPECT_EQ(AfterAttempts({kItWorked, TokenError(-7)}),
            (Both{"The card was taken out while “Ann” was being tried. Before that, this worked: "
                  "PKCS#1 signature.",
                  "Die Karte wurde gezogen, während „Ann“ ausprobiert wurde. Vorher ging: "
                  "PKCS#1-Signatur."}));
}

TEST(TrialTextTest, KeyNotFound) {
  EXPECT_EQ(AfterAttempts({TokenError(-6)}),
            (Both{"“Ann”: the card did not find the key, though it shows the certificate. Take it "
                  "out, insert it again and try once more; if that does not help, make a report.",
                  "„Ann“: die Karte hat den Schlüssel nicht gefunden, obwohl sie das Zertifikat "
                  "zeigt. Ziehen Sie sie, stecken Sie sie neu und probieren Sie es noch einmal; "
                  "hilft das nicht, erstellen Sie einen Bericht."}));
}

TEST(TrialTextTest, WrongResult) {
  EXPECT_EQ(
      AfterAttempts({kItWorked, {.end = AttemptEnd::kWrongResult}}),
      (Both{"“Ann”: the card answered, but its answer is wrong: PSS signature. Make a report for "
            "whoever gave you the card. Before that, this worked: PKCS#1 signature.",
            "„Ann“: die Karte hat geantwortet, aber falsch: PSS-Signatur. Erstellen Sie einen "
            "Bericht für den, der die Karte ausgegeben hat. Vorher ging: PKCS#1-Signatur."}));
}

TEST(TrialTextTest, Failed) {
  EXPECT_EQ(AfterAttempts({TokenError(-3)}),
            (Both{"“Ann”: the card did not do it: It was not done (CryptoTokenKit, -3).",
                  "„Ann“: die Karte hat es nicht getan: It was not done (CryptoTokenKit, -3)."}));
  EXPECT_EQ(
      AfterAttempts({kItWorked, TokenError(-2)}).english,
      "“Ann”: the card did not do it: It was not done (CryptoTokenKit, -2). Before that, this "
      "worked: PKCS#1 signature.");
}

TEST(TrialTextTest, Cancelled) {
  TriedKey key(RsaCertificate("Ann"), {});
  key.trial().Cancel();
  EXPECT_EQ(key.said(), (Both{"Cancelled. The card may still be busy for a moment.",
                              "Abgebrochen. Die Karte ist vielleicht noch einen Augenblick "
                              "beschäftigt."}));
}

TEST(TrialTextTest, NamesPassUnchanged) {
  for (const std::string& name : {std::string("\u202Eשלום"), std::string("Zoe\u0308"),
                                  std::string("{scheme}{count}{name}")}) {
    TriedKey key(EcCertificate(name), {});
    EXPECT_EQ(key.said().english,
              "Trying “" + name + "”: ECDSA signature (1 of 1). macOS may ask for the PIN.");
    key.trial().CardIsGone();
    EXPECT_EQ(key.said().english, "The card was taken out while “" + name + "” was being tried.");
  }
}

}  // namespace
}  // namespace kelvrin::app
