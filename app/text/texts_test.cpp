// What is said of the situation and of certificates, in both languages.
#include "app/text/texts.h"

#include <gtest/gtest.h>

#include "app/model/testing/scripted_system.h"
#include "app/text/testing/strings_file.h"

namespace kelvrin::app {
namespace {

Both Sentence(const Situation& situation) {
  return InBoth([&](const Texts& texts) { return texts.Sentence(situation); });
}

Both Explanation(const Situation& situation) {
  return InBoth([&](const Texts& texts) { return texts.Explanation(situation); });
}

Card SomeCard(const std::string& number, const std::string& reader, size_t certificates) {
  return {"class:" + number, number, reader, certificates};
}

struct StateSentence {
  State state;
  Both sentence;
  Both begin;  // of the explanation
};

TEST(SituationTextTest, OfEachState) {
  const StateSentence sentences[] = {
      {State::kLooking,
       {"Looking for readers and cards …", "Leser und Karten werden gesucht …"},
       {"", ""}},
      {State::kNoExtension,
       {"The extension is missing from this application", "Diesem Programm fehlt die Erweiterung"},
       {"This copy of Kelvrin Token lacks", "Dieser Kopie von Kelvrin Token fehlt"}},
      {State::kNotInApplications,
       {"Kelvrin Token is not installed yet", "Kelvrin Token ist noch nicht installiert"},
       {"Move this application to /Applications", "Bewegen Sie dieses Programm in den Ordner"}},
      {State::kSeveralCopies,
       {"Several copies of Kelvrin Token are installed", "Kelvrin Token ist mehrfach installiert"},
       {"macOS may start the extension of another copy", "macOS kann die Erweiterung einer"}},
      {State::kNotRegistered,
       {"macOS does not know the extension yet", "macOS kennt die Erweiterung noch nicht"},
       {"Register it here", "Melden Sie sie hier an"}},
      {State::kSwitchedOff,
       {"The extension is switched off", "Die Erweiterung ist abgeschaltet"},
       {"Switch it on here", "Schalten Sie sie hier ein"}},
      {State::kReadersHidden,
       {"macOS does not show the readers to this application",
        "macOS zeigt diesem Programm die Leser nicht"},
       {"Its signature lacks the right", "Seiner Signatur fehlt das Recht"}},
      {State::kNoReader,
       {"There is no reader", "Es ist kein Leser da"},
       {"Connect a smart-card reader.", "Schließen Sie einen Smartcard-Leser an."}},
      {State::kNoCard,
       {"There is no card in the reader", "Im Leser ist keine Karte"},
       {"Insert your card.", "Stecken Sie Ihre Karte ein."}},
      {State::kNoToken,
       {"The card in Reader 1 is not one that Kelvrin Token can use",
        "Mit der Karte in Reader 1 kann Kelvrin Token nichts anfangen"},
       {"Most likely first: the card was in before", "Das Wahrscheinlichste zuerst: die Karte"}},
      {State::kMuteCard,
       {"The card in Reader 1 does not answer", "Die Karte in Reader 1 antwortet nicht"},
       {"Take it out, wipe its contacts", "Ziehen Sie sie, wischen Sie ihre Kontakte ab"}},
  };
  for (const auto& [state, sentence, begin] : sentences) {
    const bool has_reader = state == State::kNoToken || state == State::kMuteCard;
    const Situation situation = {.state = state, .reader = has_reader ? "Reader 1" : ""};
    EXPECT_EQ(Sentence(situation), sentence);
    const Both explanation = Explanation(situation);
    EXPECT_TRUE(explanation.english.starts_with(begin.english)) << explanation;
    EXPECT_TRUE(explanation.german.starts_with(begin.german)) << explanation;
    EXPECT_EQ(explanation.english.empty(), state == State::kLooking);
    EXPECT_EQ(explanation.english.find('{'), std::string::npos) << explanation;
    EXPECT_EQ(explanation.german.find('{'), std::string::npos) << explanation;
  }
}

TEST(SituationTextTest, WhileACardIsRead) {
  const Situation situation = {.state = State::kLooking, .reader = "Reader 1"};
  EXPECT_EQ(Sentence(situation),
            (Both{"Reading the card in Reader 1 …", "Die Karte in Reader 1 wird gelesen …"}));
  EXPECT_EQ(Explanation(situation), (Both{"", ""}));
}

TEST(SituationTextTest, ReadyCards) {
  const auto ready = [](std::vector<Card> cards) {
    return Sentence({.state = State::kReady, .cards = std::move(cards)});
  };
  EXPECT_EQ(ready({SomeCard("4711", "X", 2)}), (Both{"Card 4711 in reader X: 2 certificates",
                                                     "Karte 4711 im Leser X: 2 Zertifikate"}));
  EXPECT_EQ(ready({SomeCard("4711", "", 1)}),
            (Both{"Card 4711: 1 certificate", "Karte 4711: 1 Zertifikat"}));
  EXPECT_EQ(ready({SomeCard("1", "X", 2), SomeCard("2", "Y", 38)}),
            (Both{"2 cards: 40 certificates", "2 Karten: 40 Zertifikate"}));
  EXPECT_EQ(ready({SomeCard("1", "X", 1), SomeCard("2", "Y", 0)}),
            (Both{"2 cards: 1 certificate", "2 Karten: 1 Zertifikat"}));
  EXPECT_EQ(Explanation({.state = State::kReady}),
            (Both{"Safari, Mail, ssh and VPN can use these certificates while the card is in the "
                  "reader.",
                  "Safari, Mail, ssh und VPN können diese Zertifikate benutzen, solange die Karte "
                  "im Leser ist."}));
}

TEST(SituationTextTest, ACardWithoutCertificates) {
  const Situation situation = {.state = State::kNoCertificates,
                               .cards = {SomeCard("4711", "X", 0)}};
  EXPECT_EQ(Sentence(situation), (Both{"Card 4711 in reader X: no certificates",
                                       "Karte 4711 im Leser X: keine Zertifikate"}));
  const Both said = Explanation(situation);
  EXPECT_TRUE(said.english.starts_with("Nothing on this card can be used")) << said;
  EXPECT_TRUE(said.german.starts_with("Mit dieser Karte ist nichts anzufangen")) << said;
}

TEST(SituationTextTest, ACardWithNothingUsable) {
  const Both said =
      Explanation({.state = State::kNothingUsable, .cards = {SomeCard("4711", "X", 2)}});
  EXPECT_TRUE(said.english.starts_with("None of these certificates can be used now")) << said;
  EXPECT_TRUE(said.german.starts_with("Keines dieser Zertifikate ist jetzt zu gebrauchen")) << said;
}

TEST(SituationTextTest, OtherCopiesStandEachOnALine) {
  const Both said = Explanation({.state = State::kSeveralCopies, .copies = {"/A.app", "/B.app"}});
  EXPECT_TRUE(said.english.ends_with("then open this one again:\n/A.app\n/B.app")) << said;
  EXPECT_TRUE(said.german.ends_with("dann noch einmal:\n/A.app\n/B.app")) << said;
}

TEST(SituationTextTest, AnotherExtensionsTokenComesBeforeTheReasons) {
  const Both said = Explanation({.state = State::kNoToken, .other_token = "com.apple.piv:1"});
  EXPECT_TRUE(said.english.starts_with("Another extension uses this card: com.apple.piv:1\nMost "))
      << said;
  EXPECT_TRUE(
      said.german.starts_with("Eine andere Erweiterung benutzt diese Karte: com.apple.piv:1\nDas "))
      << said;
}

TEST(SituationTextTest, ButtonOfEachStep) {
  const std::pair<NextStep, Both> buttons[] = {
      {NextStep::kNone, {"", ""}},
      {NextStep::kShowGuide, {"Show Guide", "Anleitung zeigen"}},
      {NextStep::kShowApplication, {"Show in Finder", "Im Finder zeigen"}},
      {NextStep::kShowCopy, {"Show in Finder", "Im Finder zeigen"}},
      {NextStep::kRegister, {"Register", "Anmelden"}},
      {NextStep::kSwitchOn, {"Switch On", "Einschalten"}},
      {NextStep::kDiagnose, {"Make Report …", "Bericht erstellen …"}},
  };
  for (const auto& [step, button] : buttons) {
    EXPECT_EQ(InBoth([step = step](const Texts& texts) { return texts.Button(step); }), button);
  }
}

TEST(SituationTextTest, SignOfEachState) {
  const std::pair<State, Both> signs[] = {
      {State::kReady, {"works", "arbeitet"}},
      {State::kLooking, {"being looked for", "wird gesucht"}},
      {State::kNoReader, {"waits for you", "wartet auf Sie"}},
      {State::kNoCard, {"waits for you", "wartet auf Sie"}},
      {State::kNoExtension, {"needs attention", "braucht Aufmerksamkeit"}},
      {State::kNotInApplications, {"needs attention", "braucht Aufmerksamkeit"}},
      {State::kSeveralCopies, {"needs attention", "braucht Aufmerksamkeit"}},
      {State::kNotRegistered, {"needs attention", "braucht Aufmerksamkeit"}},
      {State::kSwitchedOff, {"needs attention", "braucht Aufmerksamkeit"}},
      {State::kReadersHidden, {"needs attention", "braucht Aufmerksamkeit"}},
      {State::kNothingUsable, {"needs attention", "braucht Aufmerksamkeit"}},
      {State::kNoToken, {"needs attention", "braucht Aufmerksamkeit"}},
  };
  for (const auto& [state, sign] : signs) {
    EXPECT_EQ(InBoth([state = state](const Texts& texts) { return texts.Sign(state); }), sign);
  }
}

// 2027-05-03 04:05:06 UTC, and a day.
constexpr Time kLastSecond = 1809317106;
constexpr Time kWholeDay = 24 * 60 * 60;

TEST(CertificateTextTest, ValidUntil) {
  Certificate certificate;
  certificate.not_before = 1704067199;  // 2023-12-31 23:59:59
  certificate.not_after = kLastSecond;
  const std::pair<Time, Both> moments[] = {
      {certificate.not_before - 1,
       {"not valid before 2023-12-31", "noch nicht gültig, erst ab 31.12.2023"}},
      {certificate.not_before, {"2027-05-03", "03.05.2027"}},
      {kLastSecond - 30 * kWholeDay, {"2027-05-03", "03.05.2027"}},
      {kLastSecond - 30 * kWholeDay + 1,
       {"expires in 29 days, on 2027-05-03", "läuft in 29 Tagen ab, am 03.05.2027"}},
      {kLastSecond - 2 * kWholeDay,
       {"expires in 2 days, on 2027-05-03", "läuft in 2 Tagen ab, am 03.05.2027"}},
      {kLastSecond - kWholeDay,
       {"expires in 1 day, on 2027-05-03", "läuft in 1 Tag ab, am 03.05.2027"}},
      {kLastSecond - kWholeDay + 1,
       {"expires within a day, on 2027-05-03", "läuft binnen eines Tages ab, am 03.05.2027"}},
      {kLastSecond,
       {"expires within a day, on 2027-05-03", "läuft binnen eines Tages ab, am 03.05.2027"}},
      {kLastSecond + 1, {"expired on 2027-05-03", "abgelaufen am 03.05.2027"}},
  };
  for (const auto& [now, said] : moments) {
    EXPECT_EQ(
        InBoth([&, now = now](const Texts& texts) { return texts.ValidUntil(certificate, now); }),
        said);
  }
}

TEST(CertificateTextTest, DatesFarAway) {
  Certificate certificate;
  certificate.not_after = 253402300799;
  EXPECT_EQ(English().ValidUntil(certificate, kLastSecond), "9999-12-31");
  certificate.not_after = 0;  // could not be read
  EXPECT_EQ(English().ValidUntil(certificate, kLastSecond), "not known");
  certificate.not_after = -1;
  EXPECT_EQ(English().ValidUntil(certificate, kLastSecond), "expired on 1969-12-31");
}

TEST(CertificateTextTest, KeyAndSize) {
  const auto key = [](const Certificate& certificate) {
    return InBoth([&](const Texts& texts) { return texts.Key(certificate); });
  };
  EXPECT_EQ(key(RsaCertificate("Ann")), (Both{"RSA, 2048 bits", "RSA, 2048 Bit"}));
  EXPECT_EQ(key(EcCertificate("Ann")), (Both{"EC, 256 bits", "EC, 256 Bit"}));
  EXPECT_EQ(key(Certificate{}), (Both{"another kind", "andere Art"}));
}

TEST(CertificateTextTest, Capabilities) {
  const auto said = [](const Certificate& certificate) {
    return InBoth([&](const Texts& texts) { return texts.Capabilities(certificate); });
  };
  Certificate certificate = RsaCertificate("Ann");
  EXPECT_EQ(said(certificate), (Both{"signs, decrypts", "signiert, entschlüsselt"}));
  certificate.can_sign = certificate.can_decrypt = false;
  EXPECT_EQ(said(certificate), (Both{"nothing", "nichts"}));
  EXPECT_EQ(said(KeylessCertificate("CA")), (Both{"no key", "kein Schlüssel"}));
}

TEST(CertificateTextTest, WhyThereIsNoKey) {
  const auto reason = [](const Certificate& certificate) {
    return InBoth([&](const Texts& texts) { return texts.NoKeyReason(certificate); });
  };
  EXPECT_EQ(reason(KeylessCertificate("CA")),
            (Both{"The card offers no key for this certificate, as is usual for those of issuers.",
                  "Die Karte bietet zu diesem Zertifikat keinen Schlüssel an, wie es bei denen von "
                  "Ausstellern üblich ist."}));
  EXPECT_EQ(reason(Certificate{}),
            (Both{"macOS cannot use keys of this kind, so the certificate stands alone.",
                  "Mit Schlüsseln dieser Art kann macOS nichts anfangen; das Zertifikat steht "
                  "allein da."}));
}

TEST(CertificateTextTest, Details) {
  Certificate certificate;
  certificate.serial_number = {0x00, 0x3F, 0xA0};
  certificate.fingerprint = {0xFF, 0x01};
  const auto details = [&](const std::string& reader) {
    return InBoth([&](const Texts& texts) {
      std::string said;
      for (const auto& [name, value] : texts.Details(certificate, reader)) {
        said += name + "=" + value + ";";
      }
      return said;
    });
  };
  EXPECT_EQ(details("Reader 1"),
            (Both{"Serial number=00:3F:A0;SHA-256 fingerprint=FF:01;Reader=Reader 1;",
                  "Seriennummer=00:3F:A0;SHA-256-Fingerabdruck=FF:01;Leser=Reader 1;"}));
  EXPECT_EQ(details(""), (Both{"Serial number=00:3F:A0;SHA-256 fingerprint=FF:01;Reader=not known;",
                               "Seriennummer=00:3F:A0;SHA-256-Fingerabdruck=FF:01;"
                               "Leser=nicht bekannt;"}));
}

TEST(CertificateTextTest, Hex) {
  EXPECT_EQ(Hex({}), "");
  EXPECT_EQ(Hex({0x0A}), "0A");
  EXPECT_EQ(Hex({0xDE, 0xAD, 0x00}), "DE:AD:00");
}

// Right to left, with combining characters, and with the marks of a place to fill.
TEST(CertificateTextTest, NamesPassUnchanged) {
  for (const std::string& name : {std::string("\u202Eשלום\u202C"), std::string("Zoe\u0308 \u0301"),
                                  std::string("{certificates}"), std::string("{reader}")}) {
    EXPECT_EQ(English().Sentence({.state = State::kReady, .cards = {SomeCard("1", name, 1)}}),
              "Card 1 in reader " + name + ": 1 certificate");
    EXPECT_EQ(English().Sentence({.state = State::kNoToken, .reader = name}),
              "The card in " + name + " is not one that Kelvrin Token can use");
    EXPECT_EQ(English().Sentence({.state = State::kReady, .cards = {SomeCard(name, "X", 1)}}),
              "Card " + name + " in reader X: 1 certificate");
  }
}

}  // namespace
}  // namespace kelvrin::app
