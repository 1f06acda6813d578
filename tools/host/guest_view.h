// What the guest holds of the host's applications, read with the platform's calls only: the two folders, each
// launcher's resources, and the current user's registry where the module writes.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "host/text.h"

namespace host {

// A launcher's own resources; fields that cannot be read are empty.
struct Launcher {
  std::string bundleId;
  std::string name;
  std::string description;  // of its version information
  std::vector<int> iconSizes;
  bool operator==(const Launcher&) const = default;
};

// Guest paths with what they hold; keys are "HKCU\...", values their key, valueMark and the value's name.
using Entries = std::map<std::string, std::string, PathLess>;

struct Snapshot {
  Entries files;     // "" for a folder, otherwise size and content hash
  Entries registry;  // "" for a key, otherwise the value's data (RegistryText, or another type's description)
  std::map<std::string, Launcher> launchers;  // by path
};

Snapshot TakeSnapshot();

// The module's parts of the current user's registry as they are stored, parents first: each key with a null
// `value`, and then its values, whose data are valid during the call.
using RegistryVisitor = std::function<void(const std::string& key, const std::string* value, DWORD type,
                                           std::span<const std::byte> data)>;
void VisitRegistry(const RegistryVisitor& visit);

// A file's bytes; nothing when it cannot be opened.
std::optional<std::string> ReadGuestFile(const std::string& path);
// The module's log, which is empty as long as nothing goes wrong.
std::string ReadLog();

// The folders as they are named when they exist; neither ends in a separator.
std::string LauncherFolder();
std::string ShortcutFolder();

// The notation of a REG_SZ in a snapshot, and its text again. A text in no other notation starts with '"'.
std::string RegistryText(const std::string& text);
inline bool IsRegistryText(const std::string& data) {
  return data.starts_with('"');
}
inline std::string TextOfValue(const std::string& data) {
  return data.substr(1, data.size() - 2);
}
inline std::string ValuePath(const std::string& key, const std::string& value) {
  return key + valueMark + value;
}

// Of the entries of a registry: deletes a key with all that lies in it; names the keys directly below a key.
void DeleteTree(Entries& registry, const std::string& key);
std::vector<std::string> Subkeys(const Entries& registry, const std::string& key);

// The module's parts of the current user's registry.
inline const std::string classesKey = "HKCU\\Software\\Classes";
inline const std::string registeredKey = "HKCU\\Software\\RegisteredApplications";
inline const std::string tessarineKey = "HKCU\\SOFTWARE\\Tessarine";

// Facts of this guest that decide what the module writes but that no catalogue can tell.
struct Surroundings {
  std::string launcherFolder;
  std::string shortcutFolder;
  bool beforeWindows7 = false;
  bool mergesUserClasses = true;  // HKEY_CLASSES_ROOT shows the current user's classes too
  // Of the machine's classes: has the dotted extension a default, has the scheme a "URL Protocol"?
  std::function<bool(const std::string& extension)> machineAssociates;
  std::function<bool(const std::string& scheme)> machineDeclares;
};
Surroundings LookAround();

}  // namespace host
