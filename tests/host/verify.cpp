// The history of a mirror. Entries of a guest are found by their names and by their marks.
#include "host/verify.h"

#include <algorithm>

#include "guest/difference.h"
#include "guest/places.h"

namespace host {
namespace {

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

}  // namespace

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
    const auto launcher = state_.launchers.find(PathOfLauncher(app.name + programSuffix));
    if (launcher != state_.launchers.end() && launcher->second.bundleId.empty()) RemoveApplication(app.name);
    if (!Register(app)) RemoveApplication(app.name);
  }
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
