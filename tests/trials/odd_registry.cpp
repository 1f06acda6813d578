// Oddities of the registry. Keys and values that the module makes are taken from a host::GuestModel.
#include <platform/control.h>

#include <algorithm>

#include "host/verify.h"
#include "support/hive.h"
#include "trials/odd_guests.h"

namespace trials {
namespace {

using host::classesKey;
using enum Road;

const Roads allRoads = {Empty, Changed, Off};
const std::string toolsKey = host::tessarineKey + "\\Tessarine Tools";

// A text as a value holds it, but for its NUL.
std::string Unterminated(const std::string& text) {
  const std::string bytes = host::Utf16Bytes(text);
  return bytes.substr(0, bytes.size() - sizeof(WCHAR));
}
Oddity::Doing Put(const std::string& key, const std::string& value, DWORD type, const std::string& bytes) {
  return [=] { hive::PutData(key, value, type, bytes); };
}
Oddity::Doing Text(const std::string& key, const std::string& value, const std::string& text) {
  return Put(key, value, REG_SZ, host::Utf16Bytes(text));
}
Oddity::Doing Drop(const std::string& key) {
  return [=] { hive::Drop(key); };
}
Oddity::Doing Make(const std::string& key) {
  return [=] { hive::PutKey(key); };
}
Oddity::Doing Both(const Oddity::Doing& first, const Oddity::Doing& second) {
  return [=] {
    first();
    second();
  };
}

host::Entries Furnished(const Setting& setting, bool changed) {
  host::GuestModel model(setting.before, setting.around);
  model.On(setting.usual);
  if (changed) model.On(setting.changed);
  return model.expected().registry;
}

// Where the tools are installed; everything but a text is as good as nothing.
void AddInstallLocations(std::vector<Oddity>& table) {
  const std::string wide = "HKLM\\SOFTWARE\\Tessarine", narrow = "HKLM\\SOFTWARE\\Wow6432Node\\Tessarine";
  const std::string key = "\\Tessarine Tools", value = "InstallLocation";
  const std::string folder = "C:\\Program Files\\Tessarine\\Tools";
  const auto whole = Both(Drop(wide), Text(wide + key, value, folder));
  struct Location {
    const char* what;
    DWORD type;
    std::string bytes;
    Fate fate;
  };
  for (const Location& each : {
           Location{"a number", REG_DWORD, "\1\2\3\4", Fate::NoneNew},
           {"bytes", REG_BINARY, "abc", Fate::NoneNew},
           {"expandable", REG_EXPAND_SZ, host::Utf16Bytes(folder), Fate::NoneNew},
           {"a list", REG_MULTI_SZ, host::Utf16Bytes(folder), Fate::NoneNew},
           {"empty", REG_SZ, host::Utf16Bytes(""), Fate::NoneNew},
           {"nothing at all", REG_SZ, "", Fate::NoneNew},
           {"too long", REG_SZ, host::Utf16Bytes(std::string(300, 'x')), Fate::NoneNew},
           {"elsewhere", REG_SZ, host::Utf16Bytes("D:\\Tools"), Fate::NoneNew},
           {"with a backslash", REG_SZ, host::Utf16Bytes(folder + "\\"), Fate::Right},
           {"unterminated", REG_SZ, Unterminated(folder), Fate::Right},
       }) {
    table.push_back({std::string("installation location: ") + each.what,
                     Put(wide + key, value, each.type, each.bytes), whole, each.fate});
  }
  table.push_back(
      {"installation location: missing", Both(Drop(wide), Make(wide + key)), whole, Fate::NoneNew});
  table.push_back({"installation location: in the 32-bit view",
                   Both(Drop(wide), Text(narrow + key, value, folder)), Both(Drop(narrow), whole),
                   Fate::Right});
}

// Keys of the installer's that are missing.
void AddMissingKeys(std::vector<Oddity>& table) {
  const std::string applications = classesKey + "\\Applications";
  const auto add = [&](const char* what, const std::string& key, const std::string& made,
                       const Roads& roads) {
    Oddity oddity{what, Drop(key), Make(made), Fate::Any, roads};
    oddity.foreseen = true;
    table.push_back(std::move(oddity));
  };
  add("no tools key", toolsKey, toolsKey, allRoads);
  add("no registered applications", host::registeredKey, host::registeredKey, allRoads);
  add("no classes", classesKey, applications, {Empty});
  add("no application keys", applications, applications, allRoads);
  table.back().orphans = {Changed, Off};  // launchers outlive them
}

// Other programs' entries of the very names that ours have, before sharing begins.
void AddNamesakes(std::vector<Oddity>& table, const Setting& setting) {
  const host::Application& app = setting.usual.applications().at(2);
  const std::string full = app.name + " (Mac)", exe = full + ".exe", command = "\\shell\\open\\command";
  const std::string type = app.defaultTypes.at(0), scheme = app.urlSchemes.at(0);
  const std::string appKey = classesKey + "\\Applications\\" + exe;
  const std::string claim = classesKey + "\\" + type + "_auto_file", extension = classesKey + "\\." + type;
  const std::string schemeKey = classesKey + "\\" + scheme, progId = classesKey + "\\Tsrn.Url." + full;
  const std::string number = "\1\2\3\4", other = classesKey + "\\Foreign.1";
  const auto add = [&](const char* what, const Oddity::Doing& make, const Lines& untilOff = {},
                       const Lines& forGood = {}) {
    table.push_back({.name = std::string("before us: ") + what,
                     .make = make,
                     .fate = Fate::Right,
                     .roads = {Empty},
                     .foreseen = true,
                     .untilOff = untilOff,
                     .forGood = forGood});
  };
  add("an application key", Both(Text(appKey, "Foreign", "x"), Text(appKey + command, "", "x")),
      {"value Foreign"});
  add("an application key's key", Make(appKey + "\\Foreign"), {"\\Foreign"});
  add("a URL ProgID", Both(Text(progId + command, "", "x"), Text(progId, "", "x")),
      {"Tsrn.Url." + full + ", value (default)"});
  add("capabilities", Text(toolsKey + "\\MacApps\\" + full + "\\Capabilities\\FileAssociations", ".x", "x"));
  add("a registered application", Text(host::registeredKey, full, "Software\\Foreign"));
  add("an offer", Make(extension + "\\OpenWithList\\" + exe + "\\Foreign"));
  add("a claim", Both(Text(claim + command, "", "x"), Text(claim + "\\DefaultIcon", "", "x")),
      {"DefaultIcon"});
  add("a default that is a number", Put(extension, "", REG_DWORD, number));
  add("a default that is bytes", Put(extension, "", REG_BINARY, "abc"));
  add("a scheme declared by a number", Put(schemeKey, "URL Protocol", REG_DWORD, number));
  add("a scheme described by a number",
      Both(Put(schemeKey, "", REG_DWORD, number), Put(schemeKey, "URL Protocol", REG_BINARY, "abc")));
  // A class that nobody has declared a scheme becomes one; with keys below it, it is taken for another's and
  // stays.
  add("a class named like a scheme", Text(schemeKey + command, "", "x"), {scheme}, {schemeKey});
  // An extension that another program opens is not claimed.
  add("an association", Both(Text(extension, "", "Foreign.1"), Text(other + command, "", "x")),
      {type + "_auto_file", "OpenWithProgids", "Foreign.1"}, {"Foreign.1"});
  table.back().touched = {app.name};
}

// Each key of the furnished guest. Those are touched that have an entry at it or below it, and all by the two
// keys that each application opens.
void AddDeniedKeys(std::vector<Oddity>& table, const Setting& setting) {
  std::map<std::string, Roads, host::PathLess> keys = {{"HKCU", allRoads}, {"HKCU\\Software", allRoads}};
  for (const bool changed : {true, false}) {
    for (const auto& [path, data] : Furnished(setting, changed)) {
      if (path.find(host::valueMark) == std::string::npos) keys[path] = changed ? Roads{Changed} : allRoads;
    }
  }
  std::map<std::string, host::Entries> entries;
  for (const host::Catalogue* catalogue : {&setting.usual, &setting.changed}) {
    for (const host::Application& app : catalogue->applications())
      entries[app.name] = setting.EntriesOf(app).registry;
  }
  for (const auto& [denied, roads] : keys) {
    const std::string key = denied;  // which lambdas cannot take from a binding
    const std::string path = "HKEY_CURRENT_USER" + key.substr(4);
    Oddity oddity{"denied: " + key, [=] { platform::DenyKey(path, true); },
                  [=] { platform::DenyKey(path, false); }, Fate::Right, roads};
    for (const auto& [name, own] : entries) {
      const bool openedByAll = key == toolsKey || key == host::registeredKey;
      if (openedByAll ||
          std::ranges::any_of(own, [&](const auto& entry) { return IsAtOrBelow(entry.first, key); }))
        oddity.touched.insert(name);
    }
    // The first sweep takes the application keys, the next cannot begin: the withdrawal leaves the folders.
    if (key == classesKey) oddity.orphans = {Off};
    // A removal that may not delete these two goes on, and nothing finds them again once the application's
    // own key is gone.
    for (const host::Application& app : setting.usual.applications()) {
      for (const std::string& own : {classesKey + "\\Tsrn.Url." + app.name + " (Mac)",
                                     toolsKey + "\\MacApps\\" + app.name + " (Mac)"}) {
        if (!setting.changed.Find(app.name) && IsAtOrBelow(key, own)) oddity.forGood.push_back(own);
      }
    }
    table.push_back(std::move(oddity));
  }
}

// Each value that the module has made, of another type or length.
void AddSpoiltValues(std::vector<Oddity>& table, const Setting& setting) {
  const std::pair<DWORD, std::string> spoilt[] = {{REG_DWORD, "\1\2\3\4"},
                                                  {REG_BINARY, "abc"},
                                                  {REG_NONE, ""},
                                                  {REG_SZ, Unterminated("x")},
                                                  {REG_SZ, "xyz"},
                                                  {REG_SZ, host::Utf16Bytes(std::string(200, 'x'))},
                                                  {REG_BINARY, std::string(2000, 'x')}};
  std::size_t count = 0;
  for (const auto& [path, text] : Furnished(setting, false)) {
    const std::size_t mark = path.find(host::valueMark);
    if (mark == std::string::npos || setting.before.registry.contains(path)) continue;
    const std::string key = path.substr(0, mark), value = path.substr(mark + 1);
    const auto& [type, bytes] = spoilt[count++ % std::size(spoilt)];
    const auto mend = [=, path = path, data = text] {
      if (!host::TakeSnapshot().registry.contains(path)) return;
      if (host::IsRegistryText(data)) {
        hive::PutText(key, value, host::TextOfValue(data));
      } else {
        hive::PutData(key, value, REG_NONE, "");
      }
    };
    const std::string what = "type " + std::to_string(type) + ", " + std::to_string(bytes.size()) + " bytes";
    table.push_back({what + ": " + key + ", value " + value,
                     Put(key, value, type, bytes),
                     mend,
                     Fate::Any,
                     {Changed, Off},
                     {},
                     true});
  }
}

}  // namespace

std::vector<Oddity> RegistryOddities(const Setting& setting) {
  std::vector<Oddity> table;
  AddInstallLocations(table);
  AddMissingKeys(table);
  AddNamesakes(table, setting);
  AddDeniedKeys(table, setting);
  AddSpoiltValues(table, setting);
  return table;
}

}  // namespace trials
