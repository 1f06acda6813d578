// The shell's commands. The catalogue that `add`, `remove` and `rename` change is shared with the guest by
// the next "on", as a host's list that changes between two commands.
#include "host/shell.h"

#include <fstream>
#include <functional>
#include <iostream>
#include <stdexcept>

#include "guest/places.h"
#include "guest/tree.h"
#include "host/commands.h"
#include "host/judge.h"
#include "host/pictures.h"
#include "host/prompt.h"
#include "host/session.h"

namespace host {
namespace {

// What a line gives to its command.
struct Words {
  std::string name, what;
  std::vector<std::string> icons;
  Application app;
};

class Shell {
 public:
  Shell(const Catalogue& catalogue, const SessionOptions& session, const ShellOptions& options)
      : folder_(options.folder),
        catalogue_(catalogue),
        session_(session.module, session.limit),
        before_(TakeSnapshot()),
        saved_(before_) {
    if (options.listen) session_.conversation().Listen(options.listen);
    session_.conversation().BeginStep("start");
    session_.Start();
  }

  using Action = std::function<void(Shell&)>;

  // Puts the command that a line names into `chosen`, and what the line gives it into `words`.
  static void Describe(CLI::App& commands, Words& words, Action& chosen) {
    commands.name("");
    commands.require_subcommand(1);
    commands.allow_windows_style_options(false);
    const auto add = [&](const char* name, const char* help, const Action& action) {
      CLI::App* command = commands.add_subcommand(name, help);
      command->callback([action, &chosen] { chosen = action; });
      return command;
    };
    add("on", "Sharing is on: the guest mirrors the catalogue", &Shell::On);
    add("off", "Sharing is off: the guest withdraws everything", &Shell::Off);
    add("announce", "Ask the guest to announce itself again", &Shell::Announce);
    add("list", "The catalogue as it is now", &Shell::List);
    CLI::App* adding = add("add", "Put an application on the catalogue", &Shell::Add);
    Application& app = words.app;
    adding->add_option("NAME", app.name)->required();
    const auto takes = [&](const char* name, std::vector<std::string>& list, const char* help) {
      adding->add_option(name, list, help)->delimiter(',')->allow_extra_args(false);
    };
    takes("--types", app.documentTypes, "Types that it can open");
    takes("--defaults", app.defaultTypes, "Types that it is to open");
    takes("--schemes", app.urlSchemes, "Schemes of addresses");
    adding->add_flag("--any", app.anyType, "It is offered for every type");
    takes("--icons", words.icons, "PNG files (default: those of the first application), or refused");
    add("remove", "Take an application off the catalogue", &Shell::Remove)
        ->add_option("APP", words.name)
        ->required();
    CLI::App* rename = add("rename", "Give an application another name", &Shell::Rename);
    rename->add_option("APP", words.name)->required();
    rename->add_option("NEWNAME", words.what)->required();
    add("show", "What the guest holds of an application", &Shell::Show)
        ->add_option("APP", words.name)
        ->required();
    add("open", "Who would open a file or an address, and why", &Shell::Open)
        ->add_option("FILE|ADDRESS", words.what)
        ->required();
    add("tree", "What the guest holds", &Shell::Tree)
        ->add_option("files|registry", words.what)
        ->check(CLI::IsMember({"files", "registry"}));
    add("diff", "What changed in the guest since the last command began, or since the last save",
        &Shell::Diff)
        ->add_option("command|save", words.what)
        ->check(CLI::IsMember({"command", "save"}));
    add("save", "Save the guest, which \"diff save\" compares with from then on", &Shell::SaveAll);
    add("verify", "Judge the guest by what it must hold", &Shell::Verify);
    add("log", "The module's log", [](Shell&) { ShowLog(); });
    add("help", "This list, or one command's own", &Shell::Help)->add_option("COMMAND", words.what);
    add("quit", "Stop the module and end", &Shell::Quit);
  }

  // False when it is time to go; throws when the command fails.
  bool Run(const std::string& line) {
    if (line.starts_with("#") || line.find_first_not_of(" \t\r") == std::string::npos) return true;
    session_.conversation().BeginStep(line);
    if (std::ranges::count(line, '"') % 2 != 0) throw std::runtime_error("a quotation mark is not closed");
    words_ = {};
    Action chosen;
    CLI::App commands;
    Describe(commands, words_, chosen);
    try {
      commands.parse(line);
    } catch (const CLI::Success& wish) {
      commands.exit(wish);
      return true;
    } catch (const CLI::ParseError& misuse) {
      throw std::runtime_error(Misuse(commands, misuse) + "; try help");
    }
    chosen(*this);
    SaveGuest();
    return goesOn_;
  }

  void Stop() {
    session_.Stop();
    Save();
  }
  bool stuck() const { return session_.stuck(); }
  const Catalogue& catalogue() const { return catalogue_; }

 private:
  static std::ostream& Say() { return std::cout << "  "; }
  static void SayNext(const std::string& what) {
    Say() << what << "; the guest takes it over with the next \"on\"\n";
  }

  // What the command has changed, for people and for `diff`.
  Snapshot Tell(const std::function<void()>& command) {
    before_ = TakeSnapshot();
    command();
    Snapshot now = TakeSnapshot();
    PrintTally(std::cout, before_, now);
    return now;
  }

  void On() {
    session_.Share(catalogue_);
    shared_ = catalogue_;
    sharing_ = true;
    const Snapshot now = Tell([&] { session_.On(); });
    Say() << "the guest mirrors " << now.launchers.size() << " applications\n";
    for (const std::string& name : Unmirrored(catalogue_, now)) Say() << name << " could not be mirrored\n";
  }

  void Off() {
    sharing_ = false;
    Tell([&] { session_.Off(); });
    Say() << "the guest has withdrawn the applications\n";
  }

  void Announce() {
    Tell([&] { session_.Announce(); });
    Say() << "the guest has announced itself again\n";
  }

  void List() {
    const auto say = [](const char* what, const std::vector<std::string>& names) {
      for (std::size_t i = 0; i < names.size(); ++i) std::cout << (i == 0 ? what : ",") << names[i];
    };
    for (const Application& app : catalogue_.applications()) {
      Say() << app.name << "  (" << app.bundleId << ")";
      say("  types ", app.documentTypes);
      if (app.anyType) std::cout << "  any type";
      say("  defaults ", app.defaultTypes);
      say("  schemes ", app.urlSchemes);
      std::cout << "  icons";
      for (const Icon& icon : app.icons) std::cout << " " << icon.size << (icon.accepted ? "" : " (refused)");
      std::cout << "\n";
    }
  }

  void Add() {
    Application& app = words_.app;
    app.bundleId = "example.added." + std::to_string(++added_);
    const bool refused = words_.icons == std::vector<std::string>{"refused"};
    if ((words_.icons.empty() || refused) && !catalogue_.applications().empty()) {
      app.icons = catalogue_.applications()[0].icons;
    }
    for (Icon& icon : app.icons) icon = refused ? RefusedIcon(icon) : icon;
    for (const std::string& file : words_.icons) {
      if (!refused) app.icons.push_back(ReadIcon(folder_, file));
    }
    catalogue_.Add(app);
    SayNext(app.name + " is on the catalogue");
  }

  void Remove() {
    catalogue_.Remove(words_.name);
    SayNext(words_.name + " is off the catalogue");
  }

  void Rename() {
    catalogue_.Rename(words_.name, words_.what);
    SayNext(words_.name + " is " + words_.what + " on the catalogue");
  }

  void Show() const {
    const Snapshot guest = TakeSnapshot();
    if (PrintApplication(std::cout, guest, words_.name)) return;
    std::vector<std::string> names;
    for (const auto& [path, launcher] : guest.launchers) names.push_back(launcher.name);
    throw std::runtime_error("the guest holds nothing of " + words_.name + DidYouMean(words_.name, names));
  }

  void Open() const {
    const std::size_t colon = words_.what.find(':'), dot = words_.what.rfind('.');
    const bool isAddress = colon != std::string::npos && colon > 1;  // one letter is a drive
    if (!isAddress && dot == std::string::npos) throw std::runtime_error(words_.what + " has no type");
    const std::string what = isAddress ? words_.what.substr(0, colon + 1) : words_.what.substr(dot);
    const Opening opening = WhoOpens(TakeSnapshot(), LookAround(), what);
    Say() << what << " "
          << (opening.application.empty() ? opening.otherwise : "opens with " + opening.application) << " ("
          << opening.why << ")";
    for (std::size_t i = 0; i < opening.offered.size(); ++i) {
      std::cout << (i == 0 ? ", offered: " : ", ") << opening.offered[i];
    }
    std::cout << "\n";
  }

  void Tree() const {
    const Snapshot guest = TakeSnapshot();
    if (words_.what != "registry") PrintFiles(std::cout, guest);
    if (words_.what != "files") PrintRegistry(std::cout, guest);
  }

  void Diff() {
    const bool save = words_.what == "save";
    if (!PrintDifference(std::cout, save ? saved_ : before_, TakeSnapshot())) {
      Say() << "no change since " << (save ? "it was saved" : "the last command") << "\n";
    }
  }

  // What others look at the guest with: its registry and, once it has been shared, its catalogue.
  void Save() {
    const std::filesystem::path kept = GuestCatalogue();
    if (!kept.empty() && !shared_.applications().empty()) SaveCatalogue(shared_, kept);
    SaveGuest();
  }

  void SaveAll() {
    Save();
    saved_ = TakeSnapshot();
    Say() << "saved; \"diff save\" says what changes from now on\n";
  }

  void Verify() {
    const std::vector<Finding> findings = Judge(TakeSnapshot(), shared_, sharing_);
    PrintFindings(std::cout, findings);
    if (findings.size() > CountKept(findings)) {
      throw std::runtime_error("the guest does not hold what it must");
    }
  }

  static void ShowLog() {
    const std::string text = ReadLog();
    std::cout << (text.empty() ? "  (empty)\n" : text);
  }

  void Help() {
    Action unused;
    CLI::App commands;
    Describe(commands, words_, unused);
    std::cout << (words_.what.empty() ? &commands : commands.get_subcommand(words_.what))->help();
  }

  void Quit() { goesOn_ = false; }

  std::filesystem::path folder_;
  Words words_;
  bool goesOn_ = true;
  Catalogue catalogue_, shared_;  // as it is now, and as the guest got it
  bool sharing_ = false;
  int added_ = 0;
  Session session_;
  Snapshot before_, saved_;  // the guest before the last command, and when it was saved
};

}  // namespace

Completion CompleteLine(const Catalogue& catalogue, const std::string& line) {
  Words words;
  Shell::Action unused;
  CLI::App commands;
  Shell::Describe(commands, words, unused);
  // The last word begins behind the last blank that stands in no quotation marks.
  Completion completion;
  bool quoted = false;
  for (std::size_t i = 0; i < line.size(); ++i) {
    if (line[i] == '"') quoted = !quoted;
    if (line[i] == ' ' && !quoted) completion.start = i + 1;
  }
  std::string word = line.substr(completion.start), kind = "COMMAND";
  std::erase(word, '"');
  std::vector<std::string> known;
  if (completion.start != 0) {
    const auto isNamed = [&](const CLI::App* each) {
      return each->get_name() == line.substr(0, line.find(' '));
    };
    const auto command = commands.get_subcommands(isNamed);
    if (command.empty()) return completion;
    known = NamesOf(*command[0]);
    kind = "";
    for (const CLI::Option* each : command[0]->get_options(&CLI::Option::get_positional)) {
      if (kind.empty()) kind = each->get_name();
    }
  }
  if (kind == "COMMAND") {
    known = NamesOf(commands);
  } else if (kind == "APP") {
    for (const Application& app : catalogue.applications()) known.push_back(app.name);
  } else if (kind == "FILE|ADDRESS") {
    const std::string folder = word.substr(0, word.rfind('/') + 1);
    std::error_code none;
    for (const auto& file :
         std::filesystem::directory_iterator(PathOf(folder.empty() ? "." : folder), none)) {
      known.push_back(folder + PathText(file.path().filename()) + (file.is_directory() ? "/" : ""));
    }
  } else if (const std::size_t bar = kind.find('|'); bar != std::string::npos) {
    known.insert(known.end(), {kind.substr(0, bar), kind.substr(bar + 1)});
  }
  for (const std::string& each : known) {
    if (!EqualNoCase(std::string_view(each).substr(0, word.size()), word)) continue;
    completion.words.push_back(each.find(' ') == std::string::npos ? each : '"' + each + '"');
  }
  std::ranges::sort(completion.words);
  return completion;
}

int RunShell(const Catalogue& catalogue, const SessionOptions& session, const ShellOptions& options) {
  std::ifstream script;
  if (!options.script.empty()) {
    script.open(PathOf(options.script));
    if (!script) throw std::runtime_error(options.script + ": cannot be opened");
  }
  Shell shell(catalogue, session, options);
  std::optional<Prompt> prompt;
  if (options.interactive) {
    std::cout << "The module runs and has announced itself. Type help for the commands.\n" << std::flush;
    prompt.emplace([&](const std::string& line) { return CompleteLine(shell.catalogue(), line); });
  }
  const auto read = [&]() -> std::optional<std::string> {
    if (prompt) return prompt->Read();
    std::string line;
    if (!std::getline(script.is_open() ? script : std::cin, line)) return std::nullopt;
    std::cout << "> " << line << "\n";
    return line;
  };
  int status = 0, number = 0;
  while (!Interrupted()) {
    const std::optional<std::string> line = read();
    if (!line) break;
    ++number;
    try {
      if (!shell.Run(*line)) break;
    } catch (const std::runtime_error& failure) {
      SaveGuest();
      if (shell.stuck()) throw;
      const std::string name = options.script.empty() ? "standard input" : options.script;
      std::cout << "  failed: " << (prompt ? "" : name + ":" + std::to_string(number) + ": ")
                << failure.what() << "\n";
      status = 1;
    }
    std::cout << std::flush;
  }
  shell.Stop();
  std::cout << "\n";
  if (Interrupted()) throw std::runtime_error("interrupted: the module is stopped, the guest is saved");
  return options.interactive ? 0 : status;
}

}  // namespace host
