// Reading launchers and shortcuts. The layouts of resources are those that the platform documents; lengths in
// them are the file's and checked before anything is read.
#include "guest/launcher_view.h"

#include <windows.h>

#include <propsys.h>
#include <shlobj.h>

#include <algorithm>
#include <cstdio>

#include "common/handles.h"
#include "guest/guest_view.h"

namespace host {
namespace {

using Data = std::span<const std::byte>;

constexpr WORD iconType = 3, rcData = 10, iconGroup = 14, versionType = 16;
constexpr WORD ownLanguage = 0x0400;

bool IsNumber(LPCWSTR name) {
  return reinterpret_cast<std::uintptr_t>(name) <= 0xFFFF;
}
WORD Number(LPCWSTR name) {
  return static_cast<WORD>(reinterpret_cast<std::uintptr_t>(name));
}

BOOL CALLBACK VisitLanguage(HMODULE module, LPCWSTR type, LPCWSTR name, WORD language, LONG_PTR to) {
  if (!IsNumber(type) || !IsNumber(name)) return TRUE;
  const HRSRC found = FindResourceExW(module, type, name, language);
  const HGLOBAL loaded = found ? LoadResource(module, found) : nullptr;
  const void* data = loaded ? LockResource(loaded) : nullptr;
  if (!data) return TRUE;
  (*reinterpret_cast<Resources*>(to))[{Number(type), Number(name), language}].assign(
      static_cast<const char*>(data), SizeofResource(module, found));
  return TRUE;
}
BOOL CALLBACK VisitName(HMODULE module, LPCWSTR type, LPWSTR name, LONG_PTR to) {
  EnumResourceLanguagesW(module, type, name, VisitLanguage, to);
  return TRUE;
}
BOOL CALLBACK VisitType(HMODULE module, LPWSTR type, LONG_PTR to) {
  EnumResourceNamesW(module, type, VisitName, to);
  return TRUE;
}

Data Resource(const Resources& all, WORD type, WORD name, WORD language) {
  const auto found = all.find({type, name, language});
  return found == all.end() ? Data() : std::as_bytes(std::span(found->second));
}

std::size_t RoundedUp(std::size_t at) {
  return (at + 3) / 4 * 4;
}

// Adds a block and all blocks inside it: length, length of its value, type, key, value, blocks.
void AddVersion(Data block, VersionBlocks& blocks) {
  constexpr std::size_t header = 6;
  if (block.size() < header) return;
  block = block.first(std::min<std::size_t>(GetU16(block, 0), block.size()));
  if (block.size() < header) return;
  const bool isText = GetU16(block, 4) == 1;
  const std::string key = Utf16Text(block.subspan(header));
  std::size_t at = RoundedUp(header + (key.size() + 1) * 2);
  const std::size_t end = at + std::size_t{GetU16(block, 2)} * (isText ? 2 : 1);
  std::string& value = blocks[key];
  if (isText && end > at && end <= block.size()) value = Utf16Text(block.subspan(at));
  for (; !isText && at + 4 <= std::min(end, block.size()); at += 4) {
    char word[16];
    std::snprintf(word, sizeof word, "%s%x", value.empty() ? "" : " ",
                  static_cast<unsigned>(GetU32(block, at)));
    value += word;
  }
  for (at = RoundedUp(end); at + header <= block.size(); at += RoundedUp(GetU16(block, at))) {
    if (GetU16(block, at) < header) return;
    AddVersion(block.subspan(at), blocks);
  }
}

std::vector<LauncherIcon> Icons(const Resources& all, Data group) {
  constexpr std::size_t header = 6, entry = 14;
  std::vector<LauncherIcon> icons;
  for (std::size_t at = header; at + entry <= group.size(); at += entry) {
    const Data bytes = group.subspan(at, entry);
    const Data image = Resource(all, iconType, GetU16(bytes, 12), ownLanguage);
    icons.push_back({{bytes.begin(), bytes.end()}, {image.begin(), image.end()}});
  }
  return icons;
}

// Every section of the executable lies inside the file. A process that ends while it writes a launcher leaves
// the file's beginning, whose resources the platform would find behind the end.
bool IsWhole(Data image) {
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

struct ComLibrary {
  ComLibrary() { CoInitialize(nullptr); }
  ~ComLibrary() { CoUninitialize(); }
  ComLibrary(const ComLibrary&) = delete;
  ComLibrary& operator=(const ComLibrary&) = delete;
};

constexpr PROPERTYKEY UserModelProperty(DWORD number) {
  return {{0x9F4C2855, 0x9F79, 0x4B39, {0xA8, 0xD0, 0xE1, 0xD4, 0x2D, 0xE1, 0xD5, 0xF3}}, number};
}
constexpr PROPERTYKEY startPinOption = UserModelProperty(12), excludeFromNew = UserModelProperty(8);

ComPtr<IShellLinkW> NewLink() {
  void* made = nullptr;
  CoCreateInstance(CLSID_ShellLink, nullptr, CLSCTX_INPROC_SERVER, IID_IShellLinkW, &made);
  return ComPtr<IShellLinkW>(static_cast<IShellLinkW*>(made));
}

template <class Interface>
ComPtr<Interface> Query(const ComPtr<IShellLinkW>& link, const IID& iid) {
  void* object = nullptr;
  if (link) link->QueryInterface(iid, &object);
  return ComPtr<Interface>(static_cast<Interface*>(object));
}

PROPVARIANT Property(const ComPtr<IPropertyStore>& store, const PROPERTYKEY& key) {
  PROPVARIANT value{};
  store->GetValue(key, &value);
  return value;
}

}  // namespace

int LauncherIcon::size() const {
  const int width = std::to_integer<int>(entry[0]);
  return width == 0 ? 256 : width;
}

Resources ReadResources(const std::string& path) {
  Resources all;
  const UniqueModule module(LoadLibraryExW(Widen(path).c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE));
  if (module) EnumResourceTypesW(module.get(), VisitType, reinterpret_cast<LONG_PTR>(&all));
  return all;
}

LauncherFile ReadLauncherFile(const std::string& path) {
  constexpr char marker[] = "mice was here";  // with its end
  LauncherFile file;
  const std::optional<std::string> bytes = ReadGuestFile(path);
  if (!bytes || !IsWhole(std::as_bytes(std::span(*bytes)))) return file;
  const Resources all = ReadResources(path);
  file.bundleId = Utf16Text(Resource(all, rcData, 260, 0));
  file.name = Utf16Text(Resource(all, rcData, 259, 0));
  AddVersion(Resource(all, versionType, 1, ownLanguage), file.version);
  file.icons = Icons(all, Resource(all, iconGroup, 448, ownLanguage));
  file.marked = std::ranges::equal(Resource(all, rcData, 57005, 0), std::as_bytes(std::span(marker)));
  return file;
}

std::optional<Shortcut> ReadShortcut(const std::string& path) {
  const ComLibrary com;
  const auto link = NewLink();
  const auto persist = Query<IPersistFile>(link, IID_IPersistFile);
  if (!persist || FAILED(persist->Load(Widen(path).c_str(), 0))) return std::nullopt;
  WCHAR target[MAX_PATH]{}, description[MAX_PATH]{};
  link->GetPath(target, MAX_PATH, nullptr, 0);
  link->GetDescription(description, MAX_PATH);
  Shortcut shortcut{.target = Narrow(target), .description = Narrow(description)};
  if (const auto store = Query<IPropertyStore>(link, IID_IPropertyStore)) {
    const PROPVARIANT pin = Property(store, startPinOption), exclude = Property(store, excludeFromNew);
    shortcut.staysUnpinned = pin.vt == VT_UI4 && pin.ulVal == 1;
    shortcut.staysUnannounced = exclude.vt == VT_BOOL && exclude.boolVal == VARIANT_TRUE;
  }
  return shortcut;
}

bool KeepsShortcutProperties() {
  const ComLibrary com;
  const auto store = Query<IPropertyStore>(NewLink(), IID_IPropertyStore);
  if (!store) return false;
  PROPVARIANT value{};
  value.vt = VT_UI4;
  value.ulVal = 1;
  store->SetValue(startPinOption, value);
  return Property(store, startPinOption).vt == VT_UI4;
}

}  // namespace host
