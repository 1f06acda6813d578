// The shell's commands. The catalogue that `add`, `remove` and `rename` change is shared with the guest by
// the next "on", as a host's list that changes between two commands.
#include "host/shell.h"

#include <functional>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "host/guest_view.h"
#include "host/session.h"
#include "host/tree.h"
#include "host/verify.h"

namespace host {
namespace {

using Words = std::vector<std::string>;

// Words are separated by blanks; double quotes hold blanks together, also inside a word.
Words Split(const std::string& line) {
  Words words;
  std::string word;
  bool quoted = false, any = false;
  for (const char c : line) {
    if (c == '"') {
      quoted = !quoted;
      any = true;
    } else if (quoted || (c != ' ' && c != '\t' && c != '\r')) {
      word += c;
      any = true;
    } else if (any) {
      words.push_back(std::exchange(word, {}));
      any = false;
    }
  }
  if (quoted) throw std::runtime_error("a quotation mark is not closed");
  if (any) words.push_back(word);
  return words;
}

std::vector<std::string> SplitList(const std::string& text) {
  std::vector<std::string> items;
  std::istringstream in(text);
  for (std::string item; std::getline(in, item, ',');) items.push_back(item);
  return items;
}

std::string Joined(const std::vector<std::string>& items) {
  std::string text;
  for (const std::string& item : items) text += (text.empty() ? "" : ",") + item;
  return text;
}

class Shell {
 public:
  Shell(const Catalogue& catalogue, const std::filesystem::path& folder, const SessionOptions& options,
        const Conversation::Listener& listen)
      : catalogue_(catalogue),
        folder_(folder),
        session_(options.module, options.limit),
        model_(TakeSnapshot(), LookAround()),
        seen_(TakeSnapshot()) {
    if (!catalogue.applications().empty()) icons_ = catalogue.applications()[0].icons;
    if (listen) session_.conversation().Listen(listen);
    session_.conversation().BeginStep("start");
    session_.Start();
  }

  // False when it is time to go; throws when the command fails.
  bool Run(const Words& words) {
    if (words.empty()) return true;
    if (words[0] == "quit") return false;
    for (const Command& command : Commands()) {
      if (words[0] != command.name) continue;
      if (words.size() - 1 < command.least || words.size() - 1 > command.most) {
        throw std::runtime_error(std::string("usage: ") + command.usage);
      }
      command.run(*this, words);
      SaveGuest();
      return true;
    }
    throw std::runtime_error("unknown command \"" + words[0] + "\"; try help");
  }

  void BeginStep(const std::string& line) { session_.conversation().BeginStep(line); }
  void Stop() { session_.Stop(); }
  bool stuck() const { return session_.stuck(); }

 private:
  struct Command {
    const char* name;
    std::size_t least, most;  // arguments
    const char* usage;
    const char* help;
    std::function<void(Shell&, const Words&)> run;
  };

  static const std::vector<Command>& Commands() {
    static const std::vector<Command> commands = {
        {"on", 0, 0, "on", "sharing is on: the guest mirrors the catalogue",
         [](Shell& shell, const Words&) { shell.On(); }},
        {"off", 0, 0, "off", "sharing is off: the guest withdraws everything",
         [](Shell& shell, const Words&) {
           shell.session_.Off();
           shell.model_.Off();
         }},
        {"announce", 0, 0, "announce", "asks the guest to announce itself again",
         [](Shell& shell, const Words&) {
           shell.session_.Announce();
           std::cout << "  announced\n";
         }},
        {"list", 0, 0, "list", "the catalogue as it is now",
         [](Shell& shell, const Words&) { shell.List(); }},
        {"add", 1, 7,
         "add NAME [types=A,B] [defaults=A] [schemes=S] [any] [icons=FILE.png,... | icons=refused]",
         "adds an application (icons: those of the first application)",
         [](Shell& shell, const Words& words) { shell.Add(words); }},
        {"remove", 1, 1, "remove NAME", "takes an application off the catalogue",
         [](Shell& shell, const Words& words) { shell.catalogue_.Remove(words[1]); }},
        {"rename", 2, 2, "rename NAME NEWNAME", "gives an application another name",
         [](Shell& shell, const Words& words) { shell.catalogue_.Rename(words[1], words[2]); }},
        {"tree", 0, 1, "tree [files | registry]", "what the guest holds",
         [](Shell&, const Words& words) { Tree(words); }},
        {"diff", 0, 0, "diff", "what has changed in the guest since the last diff",
         [](Shell& shell, const Words&) { shell.Diff(); }},
        {"verify", 0, 0, "verify", "compares the guest with what it must hold",
         [](Shell& shell, const Words&) { shell.Verify(); }},
        {"log", 0, 0, "log", "the module's log",
         [](Shell&, const Words&) {
           const std::string text = ReadLog();
           std::cout << (text.empty() ? "  (empty)\n" : text);
         }},
        {"help", 0, 0, "help", "this list", [](Shell&, const Words&) { Help(); }},
        {"quit", 0, 0, "quit", "stops the module and ends", {}},
    };
    return commands;
  }

  static void Help() {
    for (const Command& command : Commands())
      std::cout << "  " << command.usage << "\n      " << command.help << "\n";
  }

  void On() {
    session_.Share(catalogue_);
    session_.On();
    model_.On(catalogue_);
    for (const std::string& name : Unmirrored(catalogue_, TakeSnapshot())) {
      std::cout << "  " << name << " could not be mirrored\n";
    }
  }

  void List() const {
    for (const Application& app : catalogue_.applications()) {
      std::cout << "  " << app.name << "  (" << app.bundleId << ")";
      if (!app.documentTypes.empty()) std::cout << "  types " << Joined(app.documentTypes);
      if (app.anyType) std::cout << "  any type";
      if (!app.defaultTypes.empty()) std::cout << "  defaults " << Joined(app.defaultTypes);
      if (!app.urlSchemes.empty()) std::cout << "  schemes " << Joined(app.urlSchemes);
      std::cout << "  icons";
      for (const Icon& icon : app.icons) std::cout << " " << icon.size << (icon.accepted ? "" : " (refused)");
      std::cout << "\n";
    }
  }

  void Add(const Words& words) {
    Application app;
    app.bundleId = "example.added." + std::to_string(++added_);
    app.name = words[1];
    app.icons = icons_;
    for (std::size_t i = 2; i < words.size(); ++i) {
      const auto equals = words[i].find('=');
      const std::string field = words[i].substr(0, equals);
      const std::vector<std::string> items =
          equals == std::string::npos ? Words{} : SplitList(words[i].substr(equals + 1));
      if (field == "types") {
        app.documentTypes = items;
      } else if (field == "defaults") {
        app.defaultTypes = items;
      } else if (field == "schemes") {
        app.urlSchemes = items;
      } else if (words[i] == "any") {
        app.anyType = true;
      } else if (words[i] == "icons=refused") {
        for (Icon& icon : app.icons) icon = RefusedIcon(icon);
      } else if (field == "icons") {
        app.icons.clear();
        for (const std::string& file : items) app.icons.push_back(ReadIcon(folder_, file));
      } else {
        throw std::runtime_error("add: unknown \"" + words[i] + "\"");
      }
    }
    catalogue_.Add(std::move(app));
  }

  static void Tree(const Words& words) {
    const std::string what = words.size() > 1 ? words[1] : "";
    if (!what.empty() && what != "files" && what != "registry") {
      throw std::runtime_error("tree: files or registry");
    }
    const Snapshot guest = TakeSnapshot();
    if (what != "registry") PrintFiles(std::cout, guest);
    if (what != "files") PrintRegistry(std::cout, guest);
  }

  void Diff() {
    Snapshot now = TakeSnapshot();
    if (!PrintDifference(std::cout, seen_, now)) std::cout << "  no change\n";
    seen_ = std::move(now);
  }

  void Verify() const {
    const std::vector<std::string> differences = model_.Compare(TakeSnapshot());
    for (const std::string& difference : differences) std::cout << "  " << difference << "\n";
    if (!differences.empty()) throw std::runtime_error("the guest does not hold what it must");
    std::cout << "  no difference\n";
  }

  Catalogue catalogue_;
  std::filesystem::path folder_;
  std::vector<Icon> icons_;
  int added_ = 0;
  Session session_;
  GuestModel model_;
  Snapshot seen_;
};

}  // namespace

int RunShell(const Catalogue& catalogue, const std::filesystem::path& folder, const SessionOptions& options,
             bool interactive, const Conversation::Listener& listen) {
  Shell shell(catalogue, folder, options, listen);
  if (interactive) std::cout << "The module runs and has announced itself. Type help for the commands.\n";
  int status = 0;
  for (std::string line; std::cout << "> " << std::flush, !Interrupted() && std::getline(std::cin, line);) {
    if (!interactive) std::cout << line << "\n";
    if (line.starts_with("#")) continue;
    try {
      shell.BeginStep(line);
      if (!shell.Run(Split(line))) break;
    } catch (const std::runtime_error& failure) {
      SaveGuest();
      if (shell.stuck()) throw;
      std::cout << "  failed: " << failure.what() << "\n";
      status = 1;
    }
  }
  shell.Stop();
  std::cout << "\n";
  if (Interrupted()) throw std::runtime_error("interrupted: the module is stopped, the guest is saved");
  return interactive ? 0 : status;
}

}  // namespace host
