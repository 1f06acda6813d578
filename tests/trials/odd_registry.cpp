// Oddities of the registry. Keys and values that the module makes are taken from a host::GuestModel.
#include <memory>
#include <set>

#include "host/text.h"
#include "host/verify.h"
#include "trials/odd_guests.h"

namespace trials {
namespace {

using host::classesKey;

const std::string toolsKey = host::tessarineKey + "\\Tessarine Tools";
const std::string installationKey = "HKLM\\SOFTWARE\\Tessarine\\Tessarine Tools";
const std::string toolsFolder = "C:\\Program Files\\Tessarine\\Tools";

std::string Utf16(const std::string& text, bool terminated = true) {
  const auto wide = host::Widen(text);
  return {reinterpret_cast<const char*>(wide.c_str()), (wide.size() + (terminated ? 1 : 0)) * sizeof(WCHAR)};
}

Oddity::Doing Put(const std::string& key, const std::string& value, DWORD type, const std::string& bytes) {
  return [=](Stage&) { PutData(key, value, type, bytes); };
}
Oddity::Doing Text(const std::string& key, const std::string& value, const std::string& text) {
  return Put(key, value, REG_SZ, Utf16(text));
}
Oddity::Doing Drop(const std::string& key) {
  return [=](Stage&) { DropKey(key); };
}
Oddity::Doing Make(const std::string& key) {
  return [=](Stage&) { PutKey(key); };
}
Oddity::Doing Both(const Oddity::Doing& first, const Oddity::Doing& second) {
  return [=](Stage& stage) {
    first(stage);
    second(stage);
  };
}

bool IsAtOrBelow(const std::string& path, const std::string& key) {
  return path.size() >= key.size() && host::EqualNoCase(path.substr(0, key.size()), key) &&
         (path.size() == key.size() || path[key.size()] == '\\' || path[key.size()] == host::valueMark);
}

host::Snapshot Furnished(const Stage& stage, bool changed) {
  host::GuestModel model(stage.before, stage.around);
  model.On(stage.usual);
  if (changed) model.On(stage.changed);
  return model.expected();
}

// Where the tools are installed; everything but a text is as good as nothing.
void AddInstallLocations(std::vector<Oddity>& table) {
  const auto whole =
      Both(Drop("HKLM\\SOFTWARE\\Tessarine"), Text(installationKey, "InstallLocation", toolsFolder));
  const auto add = [&](const char* what, const Oddity::Doing& make, auto fate, const Oddity::Doing& lift) {
    table.push_back(
        {.name = std::string("installation location: ") + what, .make = make, .lift = lift, .fate = fate});
  };
  const auto put = [&](const char* what, DWORD type, const std::string& bytes, auto fate) {
    add(what, Put(installationKey, "InstallLocation", type, bytes), fate, whole);
  };
  put("a number", REG_DWORD, "\1\2\3\4", NewOnesMissing);
  put("bytes", REG_BINARY, "abc", NewOnesMissing);
  put("expandable", REG_EXPAND_SZ, Utf16(toolsFolder), NewOnesMissing);
  put("a list", REG_MULTI_SZ, Utf16(toolsFolder), NewOnesMissing);
  put("empty", REG_SZ, Utf16(""), NewOnesMissing);
  put("nothing at all", REG_SZ, "", NewOnesMissing);
  put("too long", REG_SZ, Utf16(std::string(300, 'x')), NewOnesMissing);
  put("elsewhere", REG_SZ, Utf16("D:\\Tools"), NewOnesMissing);
  put("with a backslash", REG_SZ, Utf16(toolsFolder + "\\"), AllRight);
  put("unterminated", REG_SZ, Utf16(toolsFolder, false), AllRight);
  add("missing", Both(Drop("HKLM\\SOFTWARE\\Tessarine"), Make(installationKey)), NewOnesMissing, whole);
  const std::string narrow = "HKLM\\SOFTWARE\\Wow6432Node\\Tessarine";
  add("in the 32-bit view",
      Both(Drop("HKLM\\SOFTWARE\\Tessarine"),
           Text(narrow + "\\Tessarine Tools", "InstallLocation", toolsFolder)),
      AllRight, Both(Drop(narrow), whole));
}

// Keys of the installer's that are missing.
void AddMissingKeys(std::vector<Oddity>& table) {
  const std::string applications = classesKey + "\\Applications";
  table.push_back({.name = "no tools key", .make = Drop(toolsKey), .lift = Make(toolsKey), .foreseen = true});
  table.push_back({.name = "no registered applications",
                   .make = Drop(host::registeredKey),
                   .lift = Make(host::registeredKey),
                   .foreseen = true});
  table.push_back({.name = "no application keys",
                   .make = Drop(applications),
                   .lift = Make(applications),
                   .roads = {Road::Empty},
                   .foreseen = true});
  // Launchers outlive them.
  table.push_back({.name = "no application keys",
                   .make = Drop(applications),
                   .lift = Make(applications),
                   .roads = {Road::Changed, Road::Off},
                   .foreseen = true,
                   .orphans = {Road::Changed, Road::Off}});
  table.push_back({.name = "no classes",
                   .make = Drop(classesKey),
                   .lift = Make(applications),
                   .roads = {Road::Empty},
                   .foreseen = true});
}

// Other programs' entries of the very names that ours have, before sharing begins.
void AddNamesakes(std::vector<Oddity>& table, const Stage& stage) {
  const host::Application& app = stage.usual.applications().at(2);
  const std::string full = app.name + " (Mac)", exe = full + ".exe";
  const std::string type = app.defaultTypes.at(0), scheme = app.urlSchemes.at(0);
  const std::string appKey = classesKey + "\\Applications\\" + exe,
                    claim = classesKey + "\\" + type + "_auto_file";
  const std::string extension = classesKey + "\\." + type, schemeKey = classesKey + "\\" + scheme;
  const std::string progId = classesKey + "\\Tsrn.Url." + full, macApps = toolsKey + "\\MacApps\\" + full;
  const auto add = [&](const char* what, const Oddity::Doing& make, std::vector<std::string> untilOff = {},
                       std::vector<std::string> forGood = {}) {
    table.push_back({.name = std::string("before us: ") + what,
                     .make = make,
                     .fate = AllRight,
                     .roads = {Road::Empty},
                     .foreseen = true,
                     .untilOff = std::move(untilOff),
                     .forGood = std::move(forGood)});
  };
  add("an application key",
      Both(Text(appKey, "Foreign", "x"), Text(appKey + "\\shell\\open\\command", "", "x")),
      {"value Foreign"});
  add("an application key's key", Make(appKey + "\\Foreign"), {"\\Foreign"});
  add("a URL ProgID", Both(Text(progId + "\\shell\\open\\command", "", "x"), Text(progId, "", "x")),
      {"Tsrn.Url." + full + ", value (default)"});
  add("capabilities", Text(macApps + "\\Capabilities\\FileAssociations", ".x", "x"));
  add("a registered application", Text(host::registeredKey, full, "Software\\Foreign"));
  add("an offer", Make(extension + "\\OpenWithList\\" + exe + "\\Foreign"));
  add("a claim",
      Both(Text(claim + "\\shell\\open\\command", "", "x"), Text(claim + "\\DefaultIcon", "", "x")),
      {"DefaultIcon"});
  add("a default that is a number", Put(extension, "", REG_DWORD, "\1\2\3\4"));
  add("a default that is bytes", Put(extension, "", REG_BINARY, "abc"));
  add("a scheme declared by a number", Put(schemeKey, "URL Protocol", REG_DWORD, "\1\2\3\4"));
  add("a scheme described by a number",
      Both(Put(schemeKey, "", REG_DWORD, "\1\2\3\4"), Put(schemeKey, "URL Protocol", REG_BINARY, "abc")));
  // A class that nobody has declared a scheme becomes one; with keys below it, it is taken for another's and
  // stays.
  add("a class named like a scheme", Text(schemeKey + "\\shell\\open\\command", "", "x"), {scheme},
      {schemeKey});
  // An extension that another program opens is not claimed.
  const std::string other = classesKey + "\\Foreign.1";
  add("an association",
      Both(Text(extension, "", "Foreign.1"), Text(other + "\\shell\\open\\command", "", "x")),
      {type + "_auto_file", "OpenWithProgids", "Foreign.1"}, {"Foreign.1"});
  table.back().fate = [=](const host::Application& each, Road, bool) {
    return each.name == app.name ? Fate::Any : Fate::Right;
  };
}

}  // namespace

std::vector<Oddity> RegistryOddities(const Stage& stage) {
  std::vector<Oddity> table;
  AddInstallLocations(table);
  AddMissingKeys(table);
  AddNamesakes(table, stage);
  return table;
}

std::vector<Oddity> DeniedKeys(const Stage& stage) {
  // Who is touched by a denied key: those that have an entry at it or below it.
  auto entries = std::make_shared<std::map<std::string, host::Entries>>();
  for (const host::Catalogue* catalogue : {&stage.usual, &stage.changed}) {
    for (const host::Application& app : catalogue->applications()) {
      (*entries)[app.name] = stage.EntriesOf(app).registry;
    }
  }
  std::map<std::string, std::vector<Road>, host::PathLess> keys = {
      {"HKCU", {Road::Empty, Road::Changed, Road::Off}},
      {"HKCU\\Software", {Road::Empty, Road::Changed, Road::Off}}};
  for (const bool changed : {true, false}) {
    for (const auto& [path, text] : Furnished(stage, changed).registry) {
      if (path.find(host::valueMark) == std::string::npos) {
        keys[path] =
            changed ? std::vector{Road::Changed} : std::vector{Road::Empty, Road::Changed, Road::Off};
      }
    }
  }
  std::vector<Oddity> table;
  for (const auto& [key, roads] : keys) {
    const std::string path = "HKEY_CURRENT_USER" + key.substr(4);
    Oddity oddity{.name = "denied: " + key,
                  .make = [=](Stage&) { platform::DenyKey(path, true); },
                  .lift = [=](Stage&) { platform::DenyKey(path, false); },
                  .fate =
                      [=, denied = key](const host::Application& app, Road, bool) {
                        const host::Entries& own = entries->at(app.name);
                        const bool touched = std::any_of(own.begin(), own.end(), [&](const auto& entry) {
                          return IsAtOrBelow(entry.first, denied);
                        });
                        const bool openedByAll = denied == toolsKey || denied == host::registeredKey;
                        return touched || openedByAll ? Fate::Any : Fate::Right;
                      },
                  .roads = roads};
    // The first sweep takes the application keys, the next cannot begin: the withdrawal leaves the folders.
    if (key == classesKey) oddity.orphans = {Road::Off};
    // A removal that may not delete these two goes on, and nothing finds them again once the application's
    // own key is gone.
    for (const host::Application& app : stage.usual.applications()) {
      if (stage.changed.Find(app.name)) continue;
      for (const std::string& own :
           {classesKey + "\\Tsrn.Url." + app.name, toolsKey + "\\MacApps\\" + app.name}) {
        if (IsAtOrBelow(key, own + " (Mac)")) oddity.forGood.push_back(own + " (Mac)");
      }
    }
    table.push_back(std::move(oddity));
  }
  return table;
}

std::vector<Oddity> SpoiltValues(const Stage& stage) {
  const std::pair<DWORD, std::string> spoilt[] = {
      {REG_DWORD, "\1\2\3\4"},
      {REG_BINARY, "abc"},
      {REG_NONE, ""},
      {REG_SZ, Utf16("x", false)},
      {REG_SZ, "xyz"},
      {REG_SZ, Utf16(std::string(200, 'x'))},
      {REG_BINARY, std::string(2000, 'x')},
  };
  std::vector<Oddity> table;
  const host::Snapshot furnished = Furnished(stage, false);
  for (const auto& [path, data] : furnished.registry) {
    const auto mark = path.find(host::valueMark);
    if (mark == std::string::npos || stage.before.registry.contains(path)) continue;
    const std::string key = path.substr(0, mark), value = path.substr(mark + 1);
    const auto& [type, bytes] = spoilt[table.size() % std::size(spoilt)];
    const auto mend = [=, path = path, data = data](Stage&) {
      if (!host::TakeSnapshot().registry.contains(path)) return;
      if (host::IsRegistryText(data)) {
        PutText(key, value, host::TextOfValue(data));
      } else {
        PutData(key, value, REG_NONE, "");
      }
    };
    table.push_back({.name = "type " + std::to_string(type) + ", " + std::to_string(bytes.size()) +
                             " bytes: " + key + ", value " + value,
                     .make = Put(key, value, type, bytes),
                     .lift = mend,
                     .roads = {Road::Changed, Road::Off},
                     .foreseen = true});
  }
  return table;
}

}  // namespace trials
