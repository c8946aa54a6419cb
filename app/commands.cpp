#include "app/commands.h"

#include <CLI/CLI.hpp>
#include <ostream>
#include <string_view>
#include <vector>

#include "app/model/export.h"

namespace kelvrin::app {
namespace {

// Seconds in which the system tells what is there; nothing says that it has told all.
constexpr int kFirstLook = 2;
// Seconds after which what is known by then has to do.
constexpr int kLongestLook = 30;

// The model when it has seen what there is.
class Look {
 public:
  Look(System* system, const Await& await) : model(system, [] {}) {
    bool has_looked = false;
    bool has_enough = false;
    const TaskPointer first = system->After(kFirstLook, [&has_looked] { has_looked = true; });
    const TaskPointer longest = system->After(kLongestLook, [&has_enough] { has_enough = true; });
    await([&] {
      const bool is_looking =
          model.is_reading() || model.situation().state == State::kLooking || !has_looked;
      return !is_looking || has_enough;
    });
  }
  WindowModel model;
};

// A text for a terminal: a card's names, and what programs said, may hold what would steer it.
std::string Printable(std::string text) {
  for (size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    const bool is_c0 = (byte < 0x20 && byte != '\n' && byte != '\t') || byte == 0x7F;
    // Of those beyond ASCII, U+0080 to U+009F are C2 80 to C2 9F in UTF-8.
    const bool is_c1 =
        byte == 0xC2 && i + 1 < text.size() && static_cast<unsigned char>(text[i + 1]) < 0xA0;
    if (is_c0 || is_c1) text.replace(i, is_c1 ? 2 : 1, "?");
  }
  return text;
}

std::vector<Certificate> WithLabel(const WindowModel& model, const std::string& label) {
  std::vector<Certificate> found;
  for (const Certificate& each : model.certificates()) {
    if (each.name == label || (each.has_key && each.key_label == label)) found.push_back(each);
  }
  return found;
}

int PrintSshKey(const WindowModel& model, const std::string& label, const Texts& texts,
                std::ostream& output, std::ostream& errors) {
  const std::vector<Certificate> found = WithLabel(model, label);
  if (found.size() != 1) {
    errors << texts.Get(found.empty() ? "NO_SUCH_LABEL" : "SEVERAL_SUCH_LABELS") << "\n";
    if (model.certificates().empty()) errors << texts.Sentence(model.situation()) << "\n";
    return 1;
  }
  const std::optional<std::string> line = SshKey(found.front());
  if (!line) {
    errors << texts.Get("NO_SSH_KEY") << "\n";
    return 1;
  }
  output << Printable(*line) << "\n";
  return 0;
}

}  // namespace

std::optional<Options> Parse(int argc, const char* const* argv, int* status) {
  Options options;
  // The system's own arguments begin with one dash.
  if (argc < 2 || !std::string_view(argv[1]).starts_with("--")) return options;
  CLI::App app("Says what Kelvrin Token sees. Without an option it opens its window.",
               "KelvrinToken");
  bool lists = false;
  bool reports = false;
  app.add_flag("--list", lists,
               "Print the state and the certificates; exit status 1 when there are none");
  app.add_flag("--report", reports, "Print the report for whoever helps");
  app.add_option("--ssh-key", options.label,
                 "Print the SSH key of the certificate, or of the key, with this name")
      ->type_name("LABEL");
  app.require_option(1);
  try {
    app.parse(argc, argv);
  } catch (const CLI::Error& end) {
    *status = app.exit(end) == 0 ? 0 : 2;
    return std::nullopt;
  }
  options.action = lists     ? Options::Action::kList
                   : reports ? Options::Action::kReport
                             : Options::Action::kSshKey;
  return options;
}

int RunCommand(const Options& options, System* system, const Texts& texts, const Await& await,
               std::ostream& output, std::ostream& errors) {
  Look look(system, await);
  WindowModel& model = look.model;
  switch (options.action) {
    case Options::Action::kWindow:
      break;
    case Options::Action::kList:
      output << Printable(texts.List(model));
      return model.certificates().empty() ? 1 : 0;
    case Options::Action::kReport:
      model.Diagnose();
      await([&model] { return model.diagnosis()->is_complete(); });
      output << Printable(texts.Report(model, *model.diagnosis()));
      return 0;
    case Options::Action::kSshKey:
      return PrintSshKey(model, options.label, texts, output, errors);
  }
  return 2;
}

}  // namespace kelvrin::app
