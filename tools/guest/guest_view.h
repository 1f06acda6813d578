// What the guest holds of the host's applications, read with the platform's calls only: the two folders, each
// launcher's resources, and the current user's registry where the module writes.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "guest/registry.h"

namespace host {

// A launcher's own resources; fields that cannot be read are empty.
struct Launcher {
  std::string bundleId;
  std::string name;
  std::string description;  // of its version information
  std::vector<int> iconSizes;
  bool operator==(const Launcher&) const = default;
};

struct Snapshot {
  Entries files;                              // "" for a folder, otherwise size and content hash
  Entries registry;                           // as ReadKeys has it
  std::map<std::string, Launcher> launchers;  // by path
};

Snapshot TakeSnapshot();

// The module's parts of the current user's registry, as VisitKeys tells them.
void VisitRegistry(const RegistryVisitor& visit);

// A file's bytes; nothing when it cannot be opened.
std::optional<std::string> ReadGuestFile(const std::string& path);
// The module's log, which is empty as long as nothing goes wrong.
std::string ReadLog();

// The folders as they are named when they exist; neither ends in a separator.
std::string LauncherFolder();
std::string ShortcutFolder();

// Of the entries of a registry: deletes a key with all that lies in it; names the keys directly below a key;
// the text of a value, which is empty unless it is one.
void DeleteTree(Entries& registry, const std::string& key);
std::vector<std::string> Subkeys(const Entries& registry, const std::string& key);
std::string TextAt(const Entries& registry, const std::string& key, const std::string& value);

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
