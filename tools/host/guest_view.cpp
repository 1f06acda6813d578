// Reading the guest.
#include "host/guest_view.h"

#include <shlobj.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <span>
#include <stdexcept>

#include "host/launcher_view.h"
#include "host/owned.h"
#include "host/wire.h"

namespace host {
namespace {

using Key = Owned<HKEY, RegCloseKey>;

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
  const HANDLE found = FindFirstFileW(Widen(folder + "\\*").c_str(), &entry);
  if (found == INVALID_HANDLE_VALUE) return;
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
  } while (FindNextFileW(found, &entry));
  FindClose(found);
}

std::string DescribeValue(DWORD type, std::span<const std::byte> data) {
  if (type == REG_SZ) return RegistryText(WideTextAt(data, 0));
  if (type == REG_EXPAND_SZ) return "REG_EXPAND_SZ \"" + WideTextAt(data, 0) + "\"";
  if (type == REG_DWORD && data.size() == 4) return "REG_DWORD " + std::to_string(GetU32(data, 0));
  const std::string size = std::to_string(data.size()) + " bytes";
  return (type == REG_NONE ? "REG_NONE, " : "type " + std::to_string(type) + ", ") + size;
}

// Room for the largest name and the data of a value; made once for a whole tree.
struct ValueRoom {
  std::basic_string<WCHAR> name = std::basic_string<WCHAR>(16384, 0);
  Bytes data = Bytes(65536);
};

void VisitKey(HKEY key, const std::string& path, ValueRoom& room, const RegistryVisitor& visit) {
  visit(path, nullptr, 0, {});
  auto& [name, data] = room;
  for (DWORD i = 0;; ++i) {
    DWORD length = static_cast<DWORD>(name.size()), size = static_cast<DWORD>(data.size()), type = 0;
    if (RegEnumValueW(key, i, name.data(), &length, nullptr, &type, reinterpret_cast<BYTE*>(data.data()),
                      &size) != ERROR_SUCCESS) {
      break;
    }
    const std::string value = Narrow({name.data(), length});
    visit(path, &value, type, std::span(data).first(size));
  }
  for (DWORD i = 0;; ++i) {
    DWORD length = 256;
    if (RegEnumKeyExW(key, i, name.data(), &length, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS)
      break;
    const std::basic_string<WCHAR> child(name.data(), length);
    Key subkey;
    if (RegOpenKeyExW(key, child.c_str(), 0, KEY_READ, subkey.out()) == ERROR_SUCCESS) {
      VisitKey(subkey.get(), path + "\\" + Narrow(child), room, visit);
    }
  }
}

bool HasText(HKEY root, const std::string& path, const char* value, std::size_t least) {
  Key key;
  if (RegOpenKeyExW(root, Widen(path).c_str(), 0, KEY_READ, key.out()) != ERROR_SUCCESS) return false;
  DWORD type = 0, size = 0;
  return RegQueryValueExW(key.get(), Widen(value).c_str(), nullptr, &type, nullptr, &size) == ERROR_SUCCESS &&
         type == REG_SZ && size > least;
}

bool IsClass(const std::basic_string<WCHAR>& name) {
  Key key;
  return RegOpenKeyExW(HKEY_CLASSES_ROOT, name.c_str(), 0, KEY_READ, key.out()) == ERROR_SUCCESS;
}

// A trait of the platform's implementation, seen by the user's classes: all of them are classes, too. Where
// the user has none that the machine has not, nothing depends on the answer.
bool ClassesAreMerged() {
  Key classes;
  RegOpenKeyExW(HKEY_CURRENT_USER, Widen("Software\\Classes").c_str(), 0, KEY_READ, classes.out());
  WCHAR name[256];
  for (DWORD i = 0, length = 256;
       RegEnumKeyExW(classes.get(), i, name, &length, nullptr, nullptr, nullptr, nullptr) == ERROR_SUCCESS;
       ++i, length = 256) {
    if (!IsClass({name, length})) return false;
  }
  return true;
}

}  // namespace

std::string RegistryText(const std::string& text) {
  return "\"" + text + "\"";
}

// A key's values and subkeys follow it in the order of the entries.
void DeleteTree(Entries& registry, const std::string& key) {
  const auto isOfTree = [&](const std::string& path) {
    return path.size() >= key.size() && EqualNoCase(path.substr(0, key.size()), key) &&
           (path.size() == key.size() || path[key.size()] == '\\' || path[key.size()] == valueMark);
  };
  const auto first = registry.lower_bound(key);
  auto last = first;
  while (last != registry.end() && isOfTree(last->first)) ++last;
  registry.erase(first, last);
}

std::vector<std::string> Subkeys(const Entries& registry, const std::string& key) {
  std::vector<std::string> names;
  for (auto i = registry.lower_bound(key + "\\"); i != registry.end(); ++i) {
    if (!EqualNoCase(i->first.substr(0, key.size() + 1), key + "\\")) break;
    const std::string name = i->first.substr(key.size() + 1);
    if (name.find_first_of(std::string{'\\', valueMark}) == std::string::npos) names.push_back(name);
  }
  return names;
}

std::string LauncherFolder() {
  return SpecialFolder(CSIDL_APPDATA) + "\\Tessarine\\Shared Applications";
}

std::string ShortcutFolder() {
  return SpecialFolder(CSIDL_PROGRAMS) + "\\Tessarine Shared Applications";
}

std::optional<std::string> ReadGuestFile(const std::string& path) {
  const HANDLE file =
      CreateFileW(Widen(path).c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                  nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return std::nullopt;
  std::string bytes;
  char block[4096];
  DWORD count = 0;
  while (ReadFile(file, block, sizeof block, &count, nullptr) && count > 0) bytes.append(block, count);
  CloseHandle(file);
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
  ValueRoom room;
  for (const std::string& path : {classesKey, registeredKey, tessarineKey}) {
    Key key;
    const auto below = Widen(path.substr(std::strlen("HKCU\\")));
    if (RegOpenKeyExW(HKEY_CURRENT_USER, below.c_str(), 0, KEY_READ, key.out()) == ERROR_SUCCESS) {
      VisitKey(key.get(), path, room, visit);
    }
  }
}

Snapshot TakeSnapshot() {
  Snapshot snapshot;
  AddFolder(LauncherFolder(), true, snapshot);
  AddFolder(ShortcutFolder(), false, snapshot);
  VisitRegistry(
      [&](const std::string& key, const std::string* value, DWORD type, std::span<const std::byte> data) {
        if (value) {
          snapshot.registry[ValuePath(key, *value)] = DescribeValue(type, data);
        } else {
          snapshot.registry[key];
        }
      });
  return snapshot;
}

Surroundings LookAround() {
  const DWORD version = GetVersion();
  return {.launcherFolder = LauncherFolder(),
          .shortcutFolder = ShortcutFolder(),
          .beforeWindows7 = LOBYTE(version) * 256 + HIBYTE(LOWORD(version)) < 0x0601,
          .mergesUserClasses = ClassesAreMerged(),
          .machineAssociates =
              [](const std::string& extension) {
                return HasText(HKEY_LOCAL_MACHINE, "Software\\Classes\\" + extension, "", 2);
              },
          .machineDeclares =
              [](const std::string& scheme) {
                return HasText(HKEY_LOCAL_MACHINE, "Software\\Classes\\" + scheme, "URL Protocol", 0);
              }};
}

}  // namespace host
