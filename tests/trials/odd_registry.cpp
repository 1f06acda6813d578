// Oddities of the registry. Keys and values that the module makes are taken from a host::GuestModel.
#include "guest/places.h"
#include "host/verify.h"
#include "support/hive.h"
#include "trials/odd_guests.h"

namespace trials {
namespace {

using host::classesKey;
using enum Command;

const Commands all = {FirstOn, ChangedOn, Off};

// Keys of the installer's that are missing, and one that comes back.
void AddMissingKeys(std::vector<Oddity>& table) {
  const auto add = [&](const std::string& missing, const std::string& made, const Commands& commands) {
    table.push_back({.name = "missing: " + missing,
                     .commands = commands,
                     .isForeseen = true,
                     .make = [=] { hive::Drop(missing); },
                     .lift = [=] { hive::PutKey(made); }});
  };
  add(host::toolsKey, host::toolsKey, all);
  add(host::registeredKey, host::registeredKey, all);
  add(classesKey, host::applicationsKey, {FirstOn});
  add(host::applicationsKey, host::applicationsKey, all);
  table.back().orphans = {ChangedOn, Off};  // launchers outlive them
}

// Other programs' keys below those that we make, before sharing begins.
void AddNamesakes(std::vector<Oddity>& table, const Setting& setting) {
  const host::Application& app = setting.usual.applications().at(2);
  const std::string exe = app.name + host::programSuffix, type = app.defaultTypes.at(0);
  const std::string extension = classesKey + "\\." + type, command = "\\shell\\open\\command";
  const std::string claim = type + host::claimSuffix, scheme = app.urlSchemes.at(0);
  const auto add = [&](const std::string& key, const Lines& untilOff, const Lines& forGood = {}) {
    table.push_back({.name = "before us: " + key,
                     .applications = Oddity::Applications::Right,
                     .commands = {FirstOn},
                     .isForeseen = true,
                     .make = [=] { hive::PutText(key, "", "x"); },
                     .untilOff = untilOff,
                     .forGood = forGood});
  };
  add(host::applicationsKey + "\\" + exe + "\\Foreign", {"\\Foreign"});
  add(extension + "\\OpenWithList\\" + exe + "\\Foreign", {});
  add(classesKey + "\\" + claim + "\\DefaultIcon", {"DefaultIcon"});
  // A class that nobody has declared a scheme becomes one; with keys below it, it is taken for another's and
  // stays.
  add(classesKey + "\\" + scheme + command, {scheme}, {classesKey + "\\" + scheme});
  // An extension that another program opens is not claimed.
  add(classesKey + "\\Foreign.1" + command, {claim, "OpenWithProgids", "Foreign.1"}, {"Foreign.1"});
  table.back().touched = {app.name};
  table.back().make = [=, foreign = table.back().make] {
    foreign();
    hive::PutText(extension, "", "Foreign.1");
  };
}

// What a guest holds that mirrors the catalogues one after the other.
host::Entries Mirrored(const Setting& setting, const std::vector<const host::Catalogue*>& catalogues) {
  host::GuestModel model(setting.before, setting.around);
  for (const host::Catalogue* each : catalogues) model.On(*each);
  return model.expected().registry;
}

// Each key of a guest with applications.
void AddDeniedKeys(std::vector<Oddity>& table, const Setting& setting) {
  std::map<std::string, Commands> keys = {{"HKCU", all}, {"HKCU\\Software", all}};
  for (const auto& [path, data] : Mirrored(setting, {&setting.usual, &setting.changed}))
    keys[path] = {ChangedOn};
  for (const auto& [path, data] : Mirrored(setting, {&setting.usual})) keys[path] = all;
  // A removal that may not delete these goes on, and nothing finds them again once the application's own key
  // is gone.
  Lines ofGone;
  for (const host::Application& app : setting.usual.applications()) {
    if (setting.changed.Find(app.name)) continue;
    ofGone.push_back(classesKey + "\\" + host::urlProgIdPrefix + app.name + host::launcherSuffix);
    ofGone.push_back(host::macAppsKey + "\\" + app.name + host::launcherSuffix);
  }
  for (const auto& [key, commands] : keys) {
    if (key.find(host::valueMark) != std::string::npos) continue;
    Oddity oddity{.name = "denied: " + key, .commands = commands, .denied = key};
    // The first sweep takes the application keys, the next cannot begin: the withdrawal leaves the folders.
    if (key == classesKey) oddity.orphans = {Off};
    for (const std::string& own : ofGone) {
      if (IsAtOrBelow(key, own)) oddity.forGood.push_back(own);
    }
    table.push_back(std::move(oddity));
  }
}

// Each value that the module has made, of another type or length.
void AddSpoiltValues(std::vector<Oddity>& table, const Setting& setting) {
  const std::pair<DWORD, std::string> spoilt[] = {{REG_DWORD, "\1\2\3\4"},
                                                  {REG_BINARY, "abc"},
                                                  {REG_NONE, ""},
                                                  {REG_SZ, {"x\0", 2}},  // without its NUL
                                                  {REG_SZ, "xyz"},
                                                  {REG_SZ, host::Utf16Bytes(std::string(200, 'x'))},
                                                  {REG_BINARY, std::string(2000, 'x')}};
  std::size_t count = 0;
  for (const auto& [path, data] : Mirrored(setting, {&setting.usual})) {
    const std::size_t mark = path.find(host::valueMark);
    if (mark == std::string::npos || setting.before.registry.contains(path)) continue;
    const auto [type, bytes] = spoilt[count++ % std::size(spoilt)];
    const std::string key = path.substr(0, mark), value = path.substr(mark + 1);
    const bool isText = host::IsRegistryText(data);
    const std::string good = isText ? host::Utf16Bytes(host::TextOfValue(data)) : "";
    // Another program that has declared a scheme before us keeps it.
    const Lines forGood = value == "URL Protocol" ? Lines{key} : Lines{};
    table.push_back({.name = "type " + std::to_string(type) + ", " + std::to_string(bytes.size()) +
                             " bytes: " + key + ", value " + value,
                     .isForeseen = true,
                     .make = [=, type = type, bytes = bytes] { hive::PutData(key, value, type, bytes); },
                     .lift =
                         [=] {
                           if (hive::Value(key, value) != "none")
                             hive::PutData(key, value, isText ? REG_SZ : REG_NONE, good);
                         },
                     .forGood = forGood});
  }
}

}  // namespace

std::vector<Oddity> RegistryOddities(const Setting& setting) {
  std::vector<Oddity> table;
  AddMissingKeys(table);
  AddNamesakes(table, setting);
  AddDeniedKeys(table, setting);
  AddSpoiltValues(table, setting);
  return table;
}

}  // namespace trials
