// Reading the guest. Launchers are loaded as data, so none of their code runs.
#include "host/guest_view.h"

#include <shlobj.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <span>
#include <stdexcept>

#include "host/wire.h"

namespace host {
namespace {

// Closes what it holds; for the few handles of this file.
template <class Handle, auto close>
class Owned {
 public:
  explicit Owned(Handle handle = Handle()) : handle_(handle) {}
  ~Owned() {
    if (handle_ != Handle()) close(handle_);
  }
  Owned(const Owned&) = delete;
  Owned& operator=(const Owned&) = delete;
  Handle get() const { return handle_; }
  Handle* out() { return &handle_; }
  explicit operator bool() const { return handle_ != Handle(); }

 private:
  Handle handle_;
};
using Key = Owned<HKEY, RegCloseKey>;
using DataFile = Owned<HMODULE, FreeLibrary>;

std::string SpecialFolder(int csidl) {
  WCHAR path[MAX_PATH];
  if (!SHGetSpecialFolderPathW(nullptr, path, csidl, TRUE)) {
    throw std::runtime_error("the guest has no special folder " + std::to_string(csidl));
  }
  return Narrow(path);
}

std::span<const std::byte> Resource(HMODULE module, WORD type, WORD name, WORD language) {
  const HRSRC found = FindResourceExW(module, MAKEINTRESOURCEW(type), MAKEINTRESOURCEW(name), language);
  if (!found) return {};
  const HGLOBAL loaded = LoadResource(module, found);
  const void* data = loaded ? LockResource(loaded) : nullptr;
  if (!data) return {};
  return {static_cast<const std::byte*>(data), SizeofResource(module, found)};
}

// UTF-16 text from `at` up to its NUL or the end.
std::string WideTextAt(std::span<const std::byte> data, std::size_t at) {
  std::basic_string<WCHAR> text;
  for (; at + 2 <= data.size() && GetU16(data, at) != 0; at += 2)
    text += static_cast<WCHAR>(GetU16(data, at));
  return Narrow(text);
}

// The value of one string of version information: it follows its key, from the next multiple of 4 on.
std::string VersionString(std::span<const std::byte> data, std::string_view key) {
  for (std::size_t block = 0; block + 6 < data.size(); block += 4) {
    if (WideTextAt(data, block + 6) != key) continue;
    return WideTextAt(data, (block + 6 + (key.size() + 1) * 2 + 3) / 4 * 4);
  }
  return {};
}

std::vector<int> IconSizes(std::span<const std::byte> group) {
  std::vector<int> sizes;
  for (std::size_t at = 6; at + 14 <= group.size(); at += 14) {
    const int width = std::to_integer<int>(group[at]);
    sizes.push_back(width == 0 ? 256 : width);
  }
  return sizes;
}

// Every section of the executable lies inside the file. A process that ends while it writes a launcher leaves
// the file's beginning, whose resources the platform would find behind the end.
bool IsWhole(std::span<const std::byte> image) {
  constexpr std::size_t headerAt = 0x3C, fileHeader = 24, sectionHeader = 40;
  if (image.size() < headerAt + 4) return false;
  const std::size_t header = GetU32(image, headerAt);
  if (header >= image.size() || image.size() - header < fileHeader) return false;
  std::size_t section = header + fileHeader + GetU16(image, header + 20);
  for (int left = GetU16(image, header + 6); left > 0; --left, section += sectionHeader) {
    if (section + sectionHeader > image.size()) return false;
    const std::uint64_t size = GetU32(image, section + 16), at = GetU32(image, section + 20);
    if (at + size > image.size()) return false;
  }
  return true;
}

Launcher ReadLauncher(const std::string& path) {
  constexpr WORD rcData = 10, version = 16, iconGroup = 14;
  const std::optional<std::string> bytes = ReadGuestFile(path);
  if (!bytes || !IsWhole(std::as_bytes(std::span(*bytes)))) return {};
  const DataFile module(LoadLibraryExW(Widen(path).c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE));
  if (!module) return {};
  return {WideTextAt(Resource(module.get(), rcData, 260, 0), 0),
          WideTextAt(Resource(module.get(), rcData, 259, 0), 0),
          VersionString(Resource(module.get(), version, 1, 0x0400), "FileDescription"),
          IconSizes(Resource(module.get(), iconGroup, 448, 0x0400))};
}

// Size and FNV-1a hash of a file's bytes.
std::string DescribeFile(const std::string& path) {
  const std::optional<std::string> bytes = ReadGuestFile(path);
  if (!bytes) return "unreadable";
  std::uint32_t hash = 2166136261u;
  for (const char c : *bytes) hash = (hash ^ static_cast<unsigned char>(c)) * 16777619u;
  char text[16];
  std::snprintf(text, sizeof text, "%08x", static_cast<unsigned>(hash));
  return WithThousands(bytes->size()) + " bytes, #" + text;
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

void AddKey(HKEY key, const std::string& path, ValueRoom& room, Entries& registry) {
  registry[path];
  auto& [name, data] = room;
  for (DWORD i = 0;; ++i) {
    DWORD length = static_cast<DWORD>(name.size()), size = static_cast<DWORD>(data.size()), type = 0;
    if (RegEnumValueW(key, i, name.data(), &length, nullptr, &type, reinterpret_cast<BYTE*>(data.data()),
                      &size) != ERROR_SUCCESS) {
      break;
    }
    registry[ValuePath(path, Narrow({name.data(), length}))] =
        DescribeValue(type, std::span(data).first(size));
  }
  for (DWORD i = 0;; ++i) {
    DWORD length = 256;
    if (RegEnumKeyExW(key, i, name.data(), &length, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS)
      break;
    const std::basic_string<WCHAR> child(name.data(), length);
    Key subkey;
    if (RegOpenKeyExW(key, child.c_str(), 0, KEY_READ, subkey.out()) == ERROR_SUCCESS) {
      AddKey(subkey.get(), path + "\\" + Narrow(child), room, registry);
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

// Tried out with a key of our own, since the answer is a trait of the platform's implementation.
bool ClassesAreMerged() {
  const auto probe = Widen("Software\\Classes\\VelomiraHostProbe");
  Key made, seen;
  RegCreateKeyExW(HKEY_CURRENT_USER, probe.c_str(), 0, nullptr, 0, KEY_WRITE, nullptr, made.out(), nullptr);
  const bool merged = RegOpenKeyExW(HKEY_CLASSES_ROOT, Widen("VelomiraHostProbe").c_str(), 0, KEY_READ,
                                    seen.out()) == ERROR_SUCCESS;
  RegDeleteKeyW(HKEY_CURRENT_USER, probe.c_str());
  return merged;
}

}  // namespace

std::string RegistryText(const std::string& text) {
  return "\"" + text + "\"";
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

Snapshot TakeSnapshot() {
  Snapshot snapshot;
  AddFolder(LauncherFolder(), true, snapshot);
  AddFolder(ShortcutFolder(), false, snapshot);
  ValueRoom room;
  for (const std::string& path : {classesKey, registeredKey, tessarineKey}) {
    Key key;
    const auto below = Widen(path.substr(std::strlen("HKCU\\")));
    if (RegOpenKeyExW(HKEY_CURRENT_USER, below.c_str(), 0, KEY_READ, key.out()) == ERROR_SUCCESS) {
      AddKey(key.get(), path, room, snapshot.registry);
    }
  }
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
