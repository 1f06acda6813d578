// The model of the guest. Names and keys are those that a mirrored application has by contract: "{name}
// (Mac)" for its shortcut and its registrations, "{name} (Mac).exe" for its launcher.
#include "host/verify.h"

#include <algorithm>
#include <array>

#include "host/difference.h"
#include "host/places.h"

namespace host {
namespace {

// Executables, scripts, installers, links and icons never get a launcher's offer.
bool IsBlackListed(const std::string& type) {
  constexpr std::array refused = {"lnk", "exe", "com", "pif", "bat", "cmd", "msc", "msi", "ico"};
  return std::any_of(refused.begin(), refused.end(),
                     [&](const char* each) { return EqualNoCase(each, type); });
}

Launcher LauncherOf(const Application& app) {
  Launcher launcher{app.bundleId, app.name, app.name + launcherSuffix, {}};
  for (const Icon& icon : app.icons) {
    if (icon.accepted) launcher.iconSizes.push_back(icon.size);
  }
  return launcher;
}

std::string TextOfLauncher(const Launcher& launcher) {
  std::string text =
      launcher.bundleId + ", \"" + launcher.name + "\", \"" + launcher.description + "\", icons";
  for (int size : launcher.iconSizes) text += " " + std::to_string(size);
  return text;
}

void CompareEntries(const Entries& expected, const Entries& found, bool data, std::vector<std::string>& out) {
  const auto readable = [](std::string path) {
    const auto mark = path.find(valueMark);
    if (mark == std::string::npos) return path;
    if (mark + 1 == path.size()) path += "(default)";
    return path.replace(mark, 1, ", value ");
  };
  ForEachDifference(expected, found,
                    [&](const std::string& path, const std::string* must, const std::string* is) {
                      if (!is || !must) out.push_back((must ? "missing: " : "unexpected: ") + readable(path));
                      if (data && is && must) {
                        out.push_back("wrong: " + readable(path) + ": expected " + *must + ", found " + *is);
                      }
                    });
  for (const auto& [path, text] : expected) {
    if (const auto match = found.find(path); match != found.end() && match->first != path) {
      out.push_back("wrong: " + readable(path) + ": spelt " + readable(match->first));
    }
  }
}

// Of a scheme's key: would it be an extension's, a ProgID's or the launchers' own?
bool IsClassOfAnotherKind(const std::string& scheme) {
  constexpr std::string_view claim = "_auto_file", url = "Tsrn.Url.";
  const bool claimed =
      scheme.size() >= claim.size() && EqualNoCase(scheme.substr(scheme.size() - claim.size()), claim);
  return scheme.starts_with(".") || claimed || EqualNoCase(scheme.substr(0, url.size()), url) ||
         EqualNoCase(scheme, "Applications");
}

}  // namespace

GuestModel::GuestModel(Snapshot start, Surroundings surroundings)
    : state_(std::move(start)), around_(std::move(surroundings)) {}

// A key comes with all its missing parents; what exists keeps its spelling.
void GuestModel::SetData(const std::string& key, const std::string& value, const std::string& data) {
  const std::size_t above = std::string("HKCU\\Software").size();  // the part above what a snapshot holds
  std::string path = key.substr(0, above);
  for (std::size_t start = above + 1; start <= key.size();) {
    const std::size_t end = std::min(key.find('\\', start), key.size());
    path = state_.registry.try_emplace(path + "\\" + key.substr(start, end - start)).first->first;
    start = end + 1;
  }
  state_.registry[ValuePath(path, value)] = data;
}

void GuestModel::SetText(const std::string& key, const std::string& value, const std::string& text) {
  SetData(key, value, RegistryText(text));
}

void GuestModel::On(const Catalogue& catalogue) {
  const auto& apps = catalogue.applications();
  state_.files.try_emplace(around_.launcherFolder);
  // Launchers that no application calls for, by their exact name, go first.
  std::vector<std::string> stale;
  for (const auto& [path, launcher] : state_.launchers) {
    const std::string file = path.substr(around_.launcherFolder.size() + 1);
    if (std::none_of(apps.begin(), apps.end(),
                     [&](const Application& app) { return app.name + programSuffix == file; })) {
      stale.push_back(file);
    }
  }
  const std::size_t ending = programSuffix.size();
  for (const std::string& file : stale) {
    RemoveApplication(file.size() < ending ? file : file.substr(0, file.size() - ending));
  }
  for (const Application& app : apps) {
    if (!Register(app)) RemoveApplication(app.name);
  }
}

// False when the registration fails part-way; the application is then removed again.
bool GuestModel::Register(const Application& app) {
  const std::string exe = app.name + programSuffix, path = PathOfLauncher(exe);
  const std::string appKey = applicationsKey + "\\" + exe;
  const auto current = state_.launchers.find(path);
  if (current == state_.launchers.end() || current->second.bundleId.empty()) {
    if (current != state_.launchers.end()) RemoveApplication(app.name);
    if (!CanBeBuilt(app)) return false;
    state_.files[path];
    state_.launchers[path] = LauncherOf(app);
    SetText(appKey, "", "");
    SetText(appKey + "\\shell\\open\\command", "", "\"" + path + "\" \"%1\"");
    state_.files.try_emplace(around_.shortcutFolder);
    state_.files[around_.shortcutFolder + "\\" + app.name + shortcutSuffix];
  }
  if (app.documentTypes.empty()) {
    SetText(appKey, "NoOpenWith", "");
  } else {
    if (!RegisterTypes(app, appKey)) return false;
  }
  return RegisterSchemes(app, appKey);
}

bool GuestModel::RegisterTypes(const Application& app, const std::string& appKey) {
  const std::string exe = app.name + programSuffix;
  for (const std::string& type : app.documentTypes) {
    if (!IsBlackListed(type)) SetText(classesKey + "\\." + type + "\\OpenWithList\\" + exe, "", exe);
  }
  if (!Has(appKey)) return false;  // a launcher that was kept while its registration went
  state_.registry.erase(ValuePath(appKey, "NoOpenWith"));
  DeleteTree(state_.registry, appKey + "\\SupportedTypes");
  if (!app.anyType) {
    for (const std::string& type : app.documentTypes) SetText(appKey + "\\SupportedTypes", "." + type, "");
  }
  for (const std::string& type : app.defaultTypes) {
    if (!HasDefault("." + type)) ClaimDefault(type, exe);
  }
  return true;
}

bool GuestModel::HasDefault(const std::string& extension) const {
  return around_.machineAssociates(extension) ||
         (around_.mergesUserClasses && !TextAt(state_.registry, classesKey + "\\" + extension, "").empty());
}

void GuestModel::ClaimDefault(const std::string& type, const std::string& exe) {
  const std::string extensionKey = classesKey + "\\." + type, progId = type + "_auto_file";
  if (!IsBlackListed(type)) {
    if (around_.beforeWindows7) SetText(extensionKey, "", progId);
    SetText(classesKey + "\\" + progId, "", "");
    SetText(classesKey + "\\" + progId + "\\shell\\open\\command", "",
            "\"" + PathOfLauncher(exe) + "\" \"%1\"");
    const std::string offer = extensionKey + "\\OpenWithList\\" + exe;
    const auto text = state_.registry.find(ValuePath(offer, ""));
    const bool isText = text == state_.registry.end() || IsRegistryText(text->second);
    if (!Has(offer) || !isText) SetText(offer, "", exe);
  }
  if (!around_.beforeWindows7) SetData(extensionKey + "\\OpenWithProgids", progId, "REG_NONE, 0 bytes");
}

bool GuestModel::RegisterSchemes(const Application& app, const std::string& appKey) {
  std::vector<std::string> schemes = app.urlSchemes;
  std::erase_if(schemes, IsClassOfAnotherKind);
  const std::string fullName = app.name + launcherSuffix, exe = fullName + ".exe",
                    progId = urlProgIdPrefix + fullName;
  DeleteTree(state_.registry, appKey + "\\SupportedProtocols");
  if (!Has(toolsKey)) return false;
  DeleteTree(state_.registry, macAppsKey + "\\" + fullName);
  if (schemes.empty()) {
    DeleteTree(state_.registry, classesKey + "\\" + progId);
    if (!Has(registeredKey)) return false;
    state_.registry.erase(ValuePath(registeredKey, fullName));
    return true;
  }
  const std::string capabilities = macAppsKey + "\\" + fullName + "\\Capabilities";
  for (const std::string& scheme : schemes) {
    SetText(appKey + "\\SupportedProtocols", scheme, "");
    SetText(classesKey + "\\" + progId + "\\shell\\open\\command", "",
            "\"" + PathOfLauncher(exe) + "\" /url \"%1\"");
    SetText(capabilities + "\\URLAssociations", scheme, progId);
    // A scheme belongs to the first who declares it: a declared one stays as it is.
    const std::string schemeKey = classesKey + "\\" + scheme;
    const auto declared = state_.registry.find(ValuePath(schemeKey, "URL Protocol"));
    const bool ours =
        around_.mergesUserClasses && declared != state_.registry.end() && IsRegistryText(declared->second);
    if (ours || around_.machineDeclares(scheme)) continue;
    SetText(schemeKey, "", "URL:" + scheme + launcherSuffix);
    SetText(schemeKey, "URL Protocol", "");
  }
  SetText(registeredKey, fullName, capabilities.substr(std::string("HKCU\\").size()));
  return true;
}

// The entries that belong to the application alone.
void GuestModel::Unregister(const std::string& fullName) {
  DeleteTree(state_.registry, classesKey + "\\" + urlProgIdPrefix + fullName);
  DeleteTree(state_.registry, macAppsKey + "\\" + fullName);
  if (!Has(registeredKey)) return;
  state_.registry.erase(ValuePath(registeredKey, fullName));
  DeleteTree(state_.registry, applicationsKey + "\\" + fullName + ".exe");
}

void GuestModel::RemoveApplication(const std::string& name) {
  const std::string path = PathOfLauncher(name + programSuffix);
  state_.files.try_emplace(around_.shortcutFolder);
  state_.files.erase(around_.shortcutFolder + "\\" + name + shortcutSuffix);
  Unregister(name + launcherSuffix);
  state_.files.erase(path);
  std::erase_if(state_.launchers, [&](const auto& entry) { return EqualNoCase(entry.first, path); });
}

// Entries are found by their marks; what carries none stays: the values under OpenWithProgids, the emptied
// OpenWithList keys, and the offers of applications that went before sharing did.
void GuestModel::Off() {
  if (!Has(applicationsKey)) return;
  std::vector<std::string> launchers = Subkeys(state_.registry, applicationsKey), claims;
  std::erase_if(launchers, [&](const std::string& name) { return !name.ends_with(programSuffix); });
  for (const std::string& exe : launchers) {
    DeleteTree(state_.registry, applicationsKey + "\\" + exe);
    Unregister(exe.substr(0, exe.size() - 4));
  }
  for (const std::string& name : Subkeys(state_.registry, classesKey)) {
    const std::string key = classesKey + "\\" + name;
    if (IsOurScheme(state_.registry, key)) DeleteTree(state_.registry, key);
  }
  for (const std::string& name : Subkeys(state_.registry, classesKey)) {
    const std::string command =
        TextAt(state_.registry, classesKey + "\\" + name + "\\shell\\open\\command", "");
    if (name.size() > 10 && name.ends_with("_auto_file") && command.size() > around_.launcherFolder.size() &&
        command.substr(1).starts_with(around_.launcherFolder)) {
      claims.push_back(name);
    }
  }
  for (const std::string& name : claims) DeleteTree(state_.registry, classesKey + "\\" + name);
  for (const std::string& name : Subkeys(state_.registry, classesKey)) {
    const std::string key = classesKey + "\\" + name;
    if (!name.starts_with(".") || !Has(key + "\\OpenWithList")) continue;
    for (const std::string& exe : launchers) DeleteTree(state_.registry, key + "\\OpenWithList\\" + exe);
    if (std::find(claims.begin(), claims.end(), TextAt(state_.registry, key, "")) != claims.end())
      SetText(key, "", "");
  }
  state_.files.clear();
  state_.launchers.clear();
}

std::vector<std::string> Differences(const Snapshot& expected, const Snapshot& found) {
  std::vector<std::string> differences;
  CompareEntries(expected.files, found.files, true, differences);
  CompareEntries(expected.registry, found.registry, true, differences);
  return differences;
}

std::vector<std::string> Unmirrored(const Catalogue& catalogue, const Snapshot& guest) {
  std::vector<std::string> names;
  for (const Application& app : catalogue.applications()) {
    if (!guest.launchers.contains(LauncherFolder() + "\\" + app.name + programSuffix))
      names.push_back(app.name);
  }
  return names;
}

std::vector<std::string> BeyondResidue(const Snapshot& before, const Snapshot& after) {
  std::vector<std::string> differences;
  CompareEntries({}, after.files, true,
                 differences);  // both folders go whole, also those that were there before
  Entries found = after.registry;
  std::erase_if(found, [&](const auto& entry) {
    const std::string& path = entry.first;
    if (before.registry.contains(path)) return false;
    const bool ofExtension = EqualNoCase(path.substr(0, classesKey.size() + 2), classesKey + "\\.");
    return ofExtension || EqualNoCase(path, macAppsKey);
  });
  CompareEntries(before.registry, found, true, differences);
  return differences;
}

std::vector<std::string> GuestModel::Compare(const Snapshot& guest) const {
  std::vector<std::string> differences;
  CompareEntries(state_.files, guest.files, false, differences);
  CompareEntries(state_.registry, guest.registry, true, differences);
  for (const auto& [path, launcher] : state_.launchers) {
    const auto found = guest.launchers.find(path);
    if (found != guest.launchers.end() && found->second != launcher) {
      differences.push_back("wrong: " + path + ": expected " + TextOfLauncher(launcher) + ", found " +
                            TextOfLauncher(found->second));
    }
  }
  return differences;
}

}  // namespace host
