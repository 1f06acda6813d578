// The places that the contract has for types, schemes and applications.
#include "guest/places.h"

#include <algorithm>

namespace host {
namespace {

std::vector<std::string> Split(const std::string& path) {
  std::vector<std::string> parts;
  for (std::size_t start = 0; start <= path.size();) {
    const std::size_t end = std::min(path.find('\\', start), path.size());
    parts.push_back(path.substr(start, end - start));
    start = end + 1;
  }
  return parts;
}

// The application whose launcher a ProgID starts; nothing when it starts something else.
std::optional<std::string> OwnerOfClaim(const Entries& registry, const std::string& progId,
                                        const std::string& launcherFolder) {
  const std::string command = TextAt(registry, classesKey + "\\" + progId + "\\shell\\open\\command", "");
  const std::string start = "\"" + launcherFolder + "\\";
  const std::size_t end = command.find(programSuffix + "\"");
  if (!command.starts_with(start) || end == std::string::npos) return std::nullopt;
  return command.substr(start.size(), end - start.size());
}

// Those whose capabilities name it.
std::vector<std::string> OwnersOfScheme(const Entries& registry, const std::string& scheme) {
  std::vector<std::string> owners;
  const std::string start = macAppsKey + "\\", end = ValuePath("\\Capabilities\\URLAssociations", scheme);
  for (auto i = registry.lower_bound(start); i != registry.end() && IsBelow(i->first, macAppsKey); ++i) {
    const std::string& path = i->first;
    if (path.size() < start.size() + end.size()) continue;
    const std::size_t appSize = path.size() - start.size() - end.size();
    if (!EqualNoCase(std::string_view(path).substr(start.size() + appSize), end)) continue;
    const std::string app = path.substr(start.size(), appSize);
    if (app.ends_with(launcherSuffix)) owners.push_back(WithoutEnd(app, launcherSuffix));
  }
  return owners;
}

std::string WhatOfProgramKey(const std::vector<std::string>& parts, const std::string* value) {
  if (parts.size() == 2) return value && !value->empty() ? "the mark " + *value : "the application key";
  if (parts[2] == "shell") return "the command that opens files";
  const std::string what = parts[2] == "SupportedTypes"       ? "the supported type"
                           : parts[2] == "SupportedProtocols" ? "the supported scheme"
                                                              : "the entry " + parts[2];
  return value ? what + " " + *value : what + "s";
}

std::optional<Place> PlaceOfType(const Entries& registry, const std::vector<std::string>& parts,
                                 const std::string* value, const std::string& launcherFolder) {
  const std::string &type = parts[0], progId = type.substr(1) + claimSuffix;
  if (parts.size() > 2 && EqualNoCase(parts[1], "OpenWithList") && parts[2].ends_with(programSuffix)) {
    return Place{WithoutEnd(parts[2], programSuffix), "the offer for " + type, true, true};
  }
  const bool offered = parts.size() == 2 && EqualNoCase(parts[1], "OpenWithProgids");
  const bool claimed = offered ? value && EqualNoCase(*value, progId)
                               : parts.size() == 1 && value && value->empty() &&
                                     TextAt(registry, classesKey + "\\" + type, "") == progId;
  const auto owner = OwnerOfClaim(registry, progId, launcherFolder);
  if (!claimed || (!owner && registry.contains(classesKey + "\\" + progId))) return std::nullopt;
  return Place{owner.value_or(""), "the claim of " + type, true, offered};
}

std::optional<Place> PlaceOfClass(const Entries& registry, const std::string& key, const std::string* value,
                                  const std::string& launcherFolder) {
  const std::vector<std::string> parts = Split(key.substr(classesKey.size() + 1));
  const std::string& first = parts[0];
  if (EqualNoCase(first, "Applications")) {
    if (parts.size() < 2 || !parts[1].ends_with(programSuffix)) return std::nullopt;
    return Place{WithoutEnd(parts[1], programSuffix), WhatOfProgramKey(parts, value)};
  }
  if (first.starts_with(".")) return PlaceOfType(registry, parts, value, launcherFolder);
  if (first.ends_with(claimSuffix)) {
    const auto owner = OwnerOfClaim(registry, first, launcherFolder);
    if (!owner) return std::nullopt;
    return Place{*owner, "the program that claims ." + WithoutEnd(first, claimSuffix), true};
  }
  if (first.starts_with(urlProgIdPrefix) && first.ends_with(launcherSuffix)) {
    return Place{WithoutEnd(first.substr(urlProgIdPrefix.size()), launcherSuffix),
                 "the command that opens addresses"};
  }
  if (parts.size() != 1 || !IsOurScheme(registry, key)) return std::nullopt;
  const std::vector<std::string> owners = OwnersOfScheme(registry, first);
  return Place{owners.empty() ? "" : owners[0], "the declaration of the scheme " + first, true, false, first};
}

Opening WhoOpensType(const Snapshot& guest, const Surroundings& around, const std::string& type) {
  const std::string key = classesKey + "\\" + type, progId = type.substr(1) + claimSuffix,
                    text = TextAt(guest.registry, key, "");
  Opening opening;
  for (const std::string& exe : Subkeys(guest.registry, key + "\\OpenWithList")) {
    if (exe.ends_with(programSuffix) && guest.launchers.contains(around.launcherFolder + "\\" + exe)) {
      opening.offered.push_back(WithoutEnd(exe, programSuffix));
    }
  }
  const std::string owner = OwnerOfClaim(guest.registry, progId, around.launcherFolder).value_or("");
  if (around.machineAssociates(type) || (!text.empty() && text != progId)) {
    opening.why = "foreign";
    opening.otherwise = around.machineAssociates(type) ? "a program of the machine" : text;
  } else if (!owner.empty() &&
             (text == progId || guest.registry.contains(ValuePath(key + "\\OpenWithProgids", progId)))) {
    opening.why = text == progId ? "default" : "claimed";
    opening.application = owner;
  } else {
    opening.why = "nobody";
    opening.otherwise = opening.offered.empty() ? "no application is known" : "the user is asked";
  }
  return opening;
}

Opening WhoOpensScheme(const Snapshot& guest, const Surroundings& around, const std::string& scheme) {
  const std::string key = classesKey + "\\" + scheme, declared = TextAt(guest.registry, key, "");
  const std::vector<std::string> owners = OwnersOfScheme(guest.registry, scheme);
  if (around.machineDeclares(scheme)) return {"foreign", "", "a program of the machine", owners};
  if (!declared.empty() && !EqualNoCase(declared, "URL:" + scheme + launcherSuffix)) {
    return {"foreign", "", declared, owners};
  }
  if (owners.size() == 1) return {"claimed", owners[0], "", owners};
  return {"nobody", "", owners.empty() ? "no application is known" : "the user is asked", owners};
}

}  // namespace

std::string PathOfLauncher(const std::string& name) {
  return LauncherFolder() + "\\" + name + programSuffix;
}
std::string PathOfShortcut(const std::string& name) {
  return ShortcutFolder() + "\\" + name + shortcutSuffix;
}

std::string WithoutEnd(const std::string& text, const std::string& end) {
  return text.substr(0, text.size() - end.size());
}

bool IsOurScheme(const Entries& registry, const std::string& key) {
  const auto declared = registry.find(ValuePath(key, "URL Protocol"));
  return declared != registry.end() && IsRegistryText(declared->second) &&
         TextAt(registry, key, "").ends_with(launcherSuffix) && Subkeys(registry, key).empty();
}

std::optional<Place> PlaceOf(const Entries& registry, const std::string& path,
                             const std::string& launcherFolder) {
  const std::size_t mark = path.find(valueMark);
  const std::string key = path.substr(0, mark);
  const std::string name = mark == std::string::npos ? "" : path.substr(mark + 1);
  const std::string* value = mark == std::string::npos ? nullptr : &name;
  if (IsBelow(key, classesKey)) return PlaceOfClass(registry, key, value, launcherFolder);
  if (IsBelow(key, macAppsKey)) {
    const std::string app = Split(key.substr(macAppsKey.size() + 1))[0];
    if (!app.ends_with(launcherSuffix)) return std::nullopt;
    return Place{WithoutEnd(app, launcherSuffix),
                 value ? "the capability for the scheme " + name : "the set of capabilities"};
  }
  if (EqualNoCase(key, registeredKey) && name.ends_with(launcherSuffix)) {
    return Place{WithoutEnd(name, launcherSuffix), "the entry among the registered applications"};
  }
  return std::nullopt;
}

Opening WhoOpens(const Snapshot& guest, const Surroundings& around, const std::string& what) {
  return what.ends_with(':') ? WhoOpensScheme(guest, around, WithoutEnd(what, ":"))
                             : WhoOpensType(guest, around, what);
}

}  // namespace host
