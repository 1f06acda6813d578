// Reading the guest.
#include "guest/guest_view.h"

#include <shlobj.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <span>
#include <stdexcept>

#include "common/handles.h"
#include "guest/bytes.h"
#include "guest/launcher_view.h"

namespace host {
namespace {

std::string SpecialFolder(int csidl) {
  WCHAR path[MAX_PATH];
  if (!SHGetSpecialFolderPathW(nullptr, path, csidl, TRUE)) {
    throw std::runtime_error("the guest has no special folder " + std::to_string(csidl));
  }
  return Narrow(path);
}

Launcher ReadLauncher(const std::string& path) {
  const LauncherFile file = ReadLauncherFile(path);
  Launcher launcher{file.bundleId, file.name, {}, {}};
  if (const auto found = file.version.find("FileDescription"); found != file.version.end()) {
    launcher.description = found->second;
  }
  for (const LauncherIcon& icon : file.icons) launcher.iconSizes.push_back(icon.size());
  return launcher;
}

// Size and digest of a file's bytes.
std::string DescribeFile(const std::string& path) {
  const std::optional<std::string> bytes = ReadGuestFile(path);
  if (!bytes) return "unreadable";
  return WithThousands(bytes->size()) + " bytes, #" + Digest(*bytes);
}

void AddFolder(const std::string& folder, bool launchers, Snapshot& snapshot) {
  WIN32_FIND_DATAW entry;
  const UniqueFind found(FindFirstFileW(Widen(folder + "\\*").c_str(), &entry));
  if (!found) return;
  snapshot.files[folder];
  do {
    const std::string name = Narrow(entry.cFileName);
    if (name == "." || name == "..") continue;
    const std::string path = folder + "\\" + name;
    if (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
      AddFolder(path, false, snapshot);
    } else {
      snapshot.files[path] = DescribeFile(path);
      if (launchers && name.ends_with(".exe")) snapshot.launchers[path] = ReadLauncher(path);
    }
  } while (FindNextFileW(found.get(), &entry));
}

bool HasText(const std::string& machineClass, const char* value, std::size_t least) {
  const Key key = OpenKey("HKLM\\Software\\Classes\\" + machineClass);
  DWORD type = 0, size = 0;
  return key &&
         RegQueryValueExW(key.get(), Widen(value).c_str(), nullptr, &type, nullptr, &size) == ERROR_SUCCESS &&
         type == REG_SZ && size > least;
}

// A trait of the platform's implementation, seen by the user's classes: all of them are classes, too. Where
// the user has none that the machine has not, nothing depends on the answer.
bool ClassesAreMerged() {
  const Key classes = OpenKey(classesKey);
  WCHAR name[256];
  for (DWORD i = 0, length = 256; classes && RegEnumKeyExW(classes.get(), i, name, &length, nullptr, nullptr,
                                                           nullptr, nullptr) == ERROR_SUCCESS;
       ++i, length = 256) {
    if (!OpenKey("HKCR\\" + Narrow({name, length}))) return false;
  }
  return true;
}

}  // namespace

// A key's values and subkeys follow it in the order of the entries.
void DeleteTree(Entries& registry, const std::string& key) {
  auto last = registry.lower_bound(key);
  while (last != registry.end() && (EqualNoCase(last->first, key) || IsBelow(last->first, key))) ++last;
  registry.erase(registry.lower_bound(key), last);
}

std::vector<std::string> Subkeys(const Entries& registry, const std::string& key) {
  std::vector<std::string> names;
  for (auto i = registry.lower_bound(key + "\\"); i != registry.end() && IsBelow(i->first, key); ++i) {
    const std::string name = i->first.substr(key.size() + 1);
    if (name.find_first_of(std::string{'\\', valueMark}) == std::string::npos) names.push_back(name);
  }
  return names;
}

std::string TextAt(const Entries& registry, const std::string& key, const std::string& value) {
  const auto found = registry.find(ValuePath(key, value));
  return found == registry.end() || !IsRegistryText(found->second) ? "" : TextOfValue(found->second);
}

std::string LauncherFolder() {
  return SpecialFolder(CSIDL_APPDATA) + "\\Tessarine\\Shared Applications";
}

std::string ShortcutFolder() {
  return SpecialFolder(CSIDL_PROGRAMS) + "\\Tessarine Shared Applications";
}

std::optional<std::string> ReadGuestFile(const std::string& path) {
  constexpr DWORD everyShare = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
  const UniqueFile file(CreateFileW(Widen(path).c_str(), GENERIC_READ, everyShare, nullptr, OPEN_EXISTING,
                                    FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!file) return std::nullopt;
  std::string bytes;
  char block[4096];
  DWORD count = 0;
  while (ReadFile(file.get(), block, sizeof block, &count, nullptr) && count > 0) bytes.append(block, count);
  return bytes;
}

std::string ReadLog() {
  WCHAR windows[MAX_PATH];
  const UINT length = GetWindowsDirectoryW(windows, MAX_PATH);
  const auto primary = ReadGuestFile(Narrow({windows, length}) + "\\Logs\\tessarine.log");
  return primary ? *primary
                 : ReadGuestFile(SpecialFolder(CSIDL_LOCAL_APPDATA) + "\\tessarine.log").value_or("");
}

void VisitRegistry(const RegistryVisitor& visit) {
  for (const std::string& key : {classesKey, registeredKey, tessarineKey}) VisitKeys(key, visit);
}

Snapshot TakeSnapshot() {
  Snapshot snapshot;
  AddFolder(LauncherFolder(), true, snapshot);
  AddFolder(ShortcutFolder(), false, snapshot);
  for (const std::string& key : {classesKey, registeredKey, tessarineKey}) ReadKeys(key, snapshot.registry);
  return snapshot;
}

Surroundings LookAround() {
  const DWORD version = GetVersion();
  return {.launcherFolder = LauncherFolder(),
          .shortcutFolder = ShortcutFolder(),
          .beforeWindows7 = LOBYTE(version) * 256 + HIBYTE(LOWORD(version)) < 0x0601,
          .mergesUserClasses = ClassesAreMerged(),
          .machineAssociates = [](const std::string& extension) { return HasText(extension, "", 2); },
          .machineDeclares = [](const std::string& scheme) { return HasText(scheme, "URL Protocol", 0); }};
}

}  // namespace host
