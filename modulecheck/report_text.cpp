// The report for people.

#include "modulecheck/check.h"
#include "modulecheck/expectations.h"
#include "modulecheck/text.h"

namespace kelvrin::modulecheck {
namespace {

using nlohmann::json;

constexpr char kIndent[] = "                 ";

std::string Get(const json& element, const char* key) { return element.at(key).get<std::string>(); }

std::string GetQuoted(const json& element, const char* key) { return Quoted(Get(element, key)); }

std::string Numbered(std::size_t number) { return "  " + std::to_string(number) + ". "; }

// The elements, or a word for their absence.
std::string ListOr(const json& elements, const char* none) {
  return elements.empty() ? none : Join(elements.get<std::vector<std::string>>(), " ");
}

std::string SlotText(const json& slot, std::size_t number) {
  const std::string name = Get(slot, "readerName");
  std::string text = Numbered(number) + "readerName " + Quoted(name);
  text += slot.at("hasCard").get<bool>() ? ", token " + GetQuoted(slot, "label") +
                                               ", serial number " + GetQuoted(slot, "serial") + "\n"
                                         : ", no card, or none that is initialised\n";
  const std::string xml = Xml(name);
  if (xml != name) text += "     in config.plist <string>" + xml + "</string>\n";
  const std::size_t leads_to = slot.at("readerNameLeadsTo");
  if (leads_to != 0 && leads_to != number) {
    text += "     this name would lead to slot " + std::to_string(leads_to) + "\n";
  }
  return text;
}

// The slots, the one that is picked, and the one that all that follows is of.
std::string SlotsText(const json& listing) {
  std::string text = "Slots\n";
  const json& slots = listing.at("slots");
  for (std::size_t i = 0; i < slots.size(); ++i) text += SlotText(slots[i], i + 1);
  const std::size_t picked = listing.at("picked");
  text += picked == 0 ? "  The extension picks none: "
                      : "  The extension picks slot " + std::to_string(picked) + ": ";
  text += Get(listing, "why") + ".\n";
  const std::size_t judged = listing.at("judged");
  if (judged == 0) return text + "  No slot is judged.\n";
  const json& slot = slots.at(judged - 1);
  return text + "  Judged is slot " + std::to_string(judged) + ", " +
         GetQuoted(slot, "readerName") + ", with the token " + GetQuoted(slot, "label") + ".\n";
}

std::string NameText(const json& object) {
  const std::string id = Get(object, "id");
  return GetQuoted(object, "label") + ", CKA_ID " + (id.empty() ? "empty" : id) + ", ";
}

std::string CertificatesText(const json& certificates) {
  std::string text = "Certificates\n";
  if (certificates.empty()) text += "  none\n";
  for (std::size_t i = 0; i < certificates.size(); ++i) {
    text += Numbered(i + 1) + NameText(certificates[i]) +
            Counted(certificates[i].at("size").get<std::size_t>(), "byte") + "\n";
  }
  return text;
}

std::string KeysText(const json& keys, const char* title, const char* none) {
  std::string text = std::string(title) + "\n";
  if (keys.empty()) text += std::string("  ") + none + "\n";
  for (std::size_t i = 0; i < keys.size(); ++i) {
    const json& key = keys[i];
    text += Numbered(i + 1) + NameText(key) + Get(key, "type") + "\n";
    text += "     usage: " + ListOr(key.at("usage"), "none");
    text += key.value("alwaysAuthenticate", false) ? ", wants a login for each operation\n" : "\n";
    if (!key.contains("allowedMechanisms")) continue;
    const std::string result = Get(key, "allowedMechanismsResult");
    text += "     allowed mechanisms: " +
            (result.empty() ? ListOr(key.at("allowedMechanisms"), "none")
                            : "cannot be read: " + result) +
            "\n";
  }
  return text;
}

std::string PublishedText(const json& published) {
  const std::string ended = Get(published, "ended");
  const json& items = published.at("items");
  std::string text =
      items.empty() ? "The token would publish nothing" : "The token would publish\n";
  if (items.empty()) text += ended.empty() ? ".\n" : ": " + ended + ".\n";
  for (const json& item : items) {
    text += "  " + Get(item, "kind") + " " + GetQuoted(item, "name") + ", object ID " +
            Get(item, "objectId");
    if (item.at("kind") == "key") text += ": " + ListOr(item.at("capabilities"), "for nothing");
    text += '\n';
  }
  const json& dropped = published.at("dropped");
  if (!dropped.empty()) text += "It would leave out, without a word\n";
  for (const json& one : dropped) text += "  " + one.get<std::string>() + "\n";
  return text;
}

std::string ListingText(const json& listing) {
  if (!listing.contains("slots")) return "";
  std::string text = SlotsText(listing);
  if (!listing.contains("privateKeys")) return text;
  const std::string number = Get(listing, "cardNumber");
  text += "Card number: " + (number.empty() ? "none" : number) + "\n";
  text += CertificatesText(listing.at("certificates"));
  text += KeysText(listing.at("publicKeys"), "Public keys", "none");
  text += KeysText(listing.at("privateKeys"), "Private keys", "none that show without a login");
  text += "Mechanisms of the slot that matter: " + ListOr(listing.at("mechanisms"), "none") + "\n";
  if (listing.contains("published")) text += PublishedText(listing.at("published"));
  return text;
}

std::string LeftOutText(const json& certificates) {
  if (certificates.empty()) return "";
  std::string text = "The adapter leaves out these certificates\n";
  for (const json& certificate : certificates) {
    text += "  " + NameText(certificate) + Get(certificate, "reason") + "\n";
  }
  return text;
}

std::string Word(const std::string& verdict) {
  std::string word = verdict == "met-through-adapter" ? "with adapter"
                     : verdict == "not-met"           ? "NOT MET"
                     : verdict == "not-reached"       ? "not judged"
                     : verdict == "not-tried"         ? "not tried"
                     : verdict == "not-concerned"     ? "not concerned"
                                                      : verdict;
  word.resize(sizeof(kIndent) - 3, ' ');
  return "  " + word;
}

std::string Further(const char* how, const Judgement& judgement) {
  const std::string seen = Seen(judgement);
  return seen.empty() ? "" : kIndent + std::string(how) + seen + "\n";
}

// `told` is the reason that was given last: one that stands behind many expectations, such as a
// card that the adapter does not show, is given once.
std::string ExpectationText(const json& report, std::string* told) {
  const std::string verdict = Get(report, "verdict");
  const auto as_it_is = report.at("asItIs").get<Judgement>();
  std::string text = Word(verdict) + Get(report, "expects") + "\n";
  if (verdict == "met" || verdict == "not-tried" || verdict == "not-concerned") {
    return text + Further("", as_it_is);
  }
  text += Further("as it is: ", as_it_is);
  if (report.contains("throughAdapter")) {
    const std::string reason =
        Further("with the adapter: ", report.at("throughAdapter").get<Judgement>());
    if (reason != *told) text += reason;
    *told = reason;
  }
  const std::string advice = Get(report, "advice");
  return advice.empty() ? text : text + kIndent + advice + "\n";
}

// The expectations under the headings of their topics, each heading once.
std::string ExpectationsText(const json& expectations) {
  std::vector<std::string> topics;
  std::vector<std::string> texts;
  std::string told;
  for (const json& expectation : expectations) {
    const std::string topic = Get(expectation, "topic");
    std::size_t i = 0;
    while (i < topics.size() && topics[i] != topic) ++i;
    if (i == topics.size()) {
      topics.push_back(topic);
      texts.push_back(topic + "\n");
    }
    texts[i] += ExpectationText(expectation, &told);
  }
  return Join(texts, "");
}

std::string ConclusionText(const json& report) {
  std::size_t not_tried = 0;
  for (const json& one : report.at("expectations")) {
    not_tried += one.at("verdict") == "not-tried" ? 1 : 0;
  }
  const std::string end =
      not_tried == 0 ? ".\n"
                     : ", as far as it was tried (" + std::to_string(not_tried) + " not tried).\n";
  const std::string conclusion = Get(report, "conclusion");
  if (conclusion == "works") return "The module works as it is" + end;
  if (conclusion == "works-with-adapter") {
    return "The module works with the adapter in front of it" + end;
  }
  std::string text;
  if (report.contains("notJudged")) {
    text = "Could not be judged: " + Get(report.at("notJudged"), "text") + ".\n";
  }
  if (conclusion == "does-not-work") text += "The module does not work with the extension.\n";
  return text;
}

}  // namespace

std::string ToText(const json& report) {
  const bool is_behind = report.at("listing").at("of") == "adapter";
  std::string text =
      Printable(Get(report, "module")) + (is_behind ? ", behind the adapter\n" : "\n");
  for (const json& warning : report.at("warnings")) {
    text += "WARNING: " + warning.get<std::string>() + ".\n";
  }
  return text + "\n" + ListingText(report.at("listing")) +
         LeftOutText(report.at("leftOutByAdapter")) + "\n" +
         ExpectationsText(report.at("expectations")) + "\n" + ConclusionText(report);
}

}  // namespace kelvrin::modulecheck
