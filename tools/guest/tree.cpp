// Printing of snapshots.
#include "guest/tree.h"

#include <ostream>

#include "guest/difference.h"
#include "guest/launcher_view.h"
#include "guest/places.h"

namespace host {
namespace {

// A value's data for the eye: texts without the notation's quotation marks.
std::string Shown(std::string data) {
  if (IsRegistryText(data)) data = TextOfValue(data);
  const std::string folder = LauncherFolder();
  for (std::size_t at; (at = data.find(folder)) != std::string::npos;)
    data.replace(at, folder.size(), "{folder}");
  return data;
}

std::string TextOfFile(const Snapshot& guest, const std::string& path) {
  const auto launcher = guest.launchers.find(path);
  if (launcher == guest.launchers.end()) return "";
  std::string text = launcher->second.bundleId + ", icons";
  for (int size : launcher->second.iconSizes) text += " " + std::to_string(size);
  return text;
}

// Prints entries in their order, a value's key before the first of its values.
class Lines {
 public:
  explicit Lines(std::ostream& out) : out_(out) {}

  void Add(const std::string& path, char mark, const std::string& text) {
    const std::size_t value = path.find(valueMark);
    const std::string key = path.substr(0, value);
    if (value == std::string::npos) {
      out_ << "  " << mark << " " << path << (text.empty() ? "" : "  " + text) << "\n";
    } else {
      if (key != key_) out_ << "    " << key << "\n";
      const std::string name = path.substr(value + 1);
      out_ << "  " << mark << "     " << (name.empty() ? "(default)" : name) << " = " << text << "\n";
    }
    key_ = key;
  }

 private:
  std::ostream& out_;
  std::string key_;
};

}  // namespace

void PrintFiles(std::ostream& out, const Snapshot& guest) {
  Lines lines(out);
  for (const auto& [path, unused] : guest.files) lines.Add(path, ' ', TextOfFile(guest, path));
}

void PrintRegistry(std::ostream& out, const Snapshot& guest) {
  Lines lines(out);
  for (const auto& [path, data] : guest.registry) lines.Add(path, ' ', Shown(data));
}

bool PrintApplication(std::ostream& out, const Snapshot& guest, const std::string& name) {
  const std::string launcher = PathOfLauncher(name), link = PathOfShortcut(name);
  bool any = false;
  Lines lines(out);
  if (guest.launchers.contains(launcher)) {
    any = true;
    lines.Add(launcher, ' ', TextOfFile(guest, launcher));
    for (const auto& [key, value] : ReadLauncherFile(launcher).version) {
      if (!value.empty()) out << "          " << key << " = " << value << "\n";
    }
  }
  if (const auto shortcut = ReadShortcut(link)) {
    any = true;
    lines.Add(link, ' ', "-> " + Shown(shortcut->target) + ", " + shortcut->description);
  }
  for (const auto& [path, data] : guest.registry) {
    const auto place = PlaceOf(guest.registry, path, LauncherFolder());
    if (!place || place->owner != name) continue;
    any = true;
    if (path.find(valueMark) != std::string::npos) lines.Add(path, ' ', Shown(data));
  }
  return any;
}

void PrintTally(std::ostream& out, const Snapshot& before, const Snapshot& now) {
  const auto say = [&](const Entries& was, const Entries& is, const char* noun) {
    std::size_t came = 0, went = 0, changed = 0;
    ForEachDifference(was, is, [&](const std::string&, const std::string* old, const std::string* fresh) {
      ++(!old ? came : !fresh ? went : changed);
    });
    out << "    " << Count(is.size(), noun) << ": " << came << " came, " << went << " went, " << changed
        << " changed\n";
  };
  say(before.files, now.files, "file");
  say(before.registry, now.registry, "registry entry");
}

std::string Count(std::uint64_t number, const std::string& noun) {
  const bool many = number != 1, ies = many && noun.ends_with("y");
  return std::to_string(number) + " " + (ies ? noun.substr(0, noun.size() - 1) + "ie" : noun) +
         (many ? "s" : "");
}

bool PrintDifference(std::ostream& out, const Snapshot& before, const Snapshot& after) {
  Lines lines(out);
  bool any = false;
  const auto add = [&](const std::string& path, const std::string* old, const std::string* now) {
    any = true;
    if (old && now) {
      lines.Add(path, '~', Shown(*old) + " -> " + Shown(*now));
    } else if (now) {
      lines.Add(path, '+', after.files.contains(path) ? TextOfFile(after, path) : Shown(*now));
    } else if (old) {
      lines.Add(path, '-', Shown(*old));
    }
  };
  ForEachDifference(before.files, after.files, add);
  ForEachDifference(before.registry, after.registry, add);
  return any;
}

}  // namespace host
