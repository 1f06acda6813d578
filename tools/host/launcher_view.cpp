// Reading launchers and shortcuts. The layouts of resources are those that the platform documents; lengths in
// them are the file's and checked before anything is read.
#include "host/launcher_view.h"

#include <windows.h>

#include <propsys.h>
#include <shlobj.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <string_view>

#include "host/guest_view.h"
#include "host/owned.h"

namespace host {
namespace {

using Data = std::span<const std::byte>;
using DataFile = Owned<HMODULE, FreeLibrary>;

constexpr WORD iconType = 3, rcData = 10, iconGroup = 14, versionType = 16;
constexpr WORD ownLanguage = 0x0400;

Data Resource(const DataFile& module, WORD type, WORD name, WORD language) {
  const HRSRC found = FindResourceExW(module.get(), MAKEINTRESOURCEW(type), MAKEINTRESOURCEW(name), language);
  if (!found) return {};
  const HGLOBAL loaded = LoadResource(module.get(), found);
  const void* data = loaded ? LockResource(loaded) : nullptr;
  if (!data) return {};
  return {static_cast<const std::byte*>(data), SizeofResource(module.get(), found)};
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
  const std::string key = WideTextAt(block, header);
  std::size_t at = RoundedUp(header + (key.size() + 1) * 2);
  const std::size_t end = at + std::size_t{GetU16(block, 2)} * (isText ? 2 : 1);
  std::string& value = blocks[key];
  if (isText && end > at && end <= block.size()) value = WideTextAt(block, at);
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

std::vector<LauncherIcon> Icons(const DataFile& module, Data group) {
  constexpr std::size_t header = 6, entry = 14;
  std::vector<LauncherIcon> icons;
  for (std::size_t at = header; at + entry <= group.size(); at += entry) {
    const Data bytes = group.subspan(at, entry);
    const Data image = Resource(module, iconType, GetU16(bytes, 12), ownLanguage);
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

void Release(IUnknown* object) {
  object->Release();
}
template <class Interface>
using Com = Owned<Interface*, [](Interface* object) { Release(object); }>;

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

IShellLinkW* NewLink() {
  void* made = nullptr;
  CoCreateInstance(CLSID_ShellLink, nullptr, CLSCTX_INPROC_SERVER, IID_IShellLinkW, &made);
  return static_cast<IShellLinkW*>(made);
}

template <class Interface>
Interface* Query(IShellLinkW* link, const IID& iid) {
  void* object = nullptr;
  return SUCCEEDED(link->QueryInterface(iid, &object)) ? static_cast<Interface*>(object) : nullptr;
}

PROPVARIANT Property(IPropertyStore* store, const PROPERTYKEY& key) {
  PROPVARIANT value{};
  store->GetValue(key, &value);
  return value;
}

}  // namespace

int LauncherIcon::size() const {
  const int width = std::to_integer<int>(entry[0]);
  return width == 0 ? 256 : width;
}

std::string WideTextAt(Data data, std::size_t at) {
  std::basic_string<WCHAR> text;
  for (; at + 2 <= data.size() && GetU16(data, at) != 0; at += 2)
    text += static_cast<WCHAR>(GetU16(data, at));
  return Narrow(text);
}

LauncherFile ReadLauncherFile(const std::string& path) {
  constexpr char marker[] = "mice was here";  // with its end
  LauncherFile file;
  const std::optional<std::string> bytes = ReadGuestFile(path);
  if (!bytes || !IsWhole(std::as_bytes(std::span(*bytes)))) return file;
  const DataFile module(LoadLibraryExW(Widen(path).c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE));
  if (!module) return file;
  file.bundleId = WideTextAt(Resource(module, rcData, 260, 0), 0);
  file.name = WideTextAt(Resource(module, rcData, 259, 0), 0);
  AddVersion(Resource(module, versionType, 1, ownLanguage), file.version);
  file.icons = Icons(module, Resource(module, iconGroup, 448, ownLanguage));
  file.marked = std::ranges::equal(Resource(module, rcData, 57005, 0), std::as_bytes(std::span(marker)));
  return file;
}

std::optional<Shortcut> ReadShortcut(const std::string& path) {
  const ComLibrary com;
  const Com<IShellLinkW> link(NewLink());
  if (!link) return std::nullopt;
  const Com<IPersistFile> persist(Query<IPersistFile>(link.get(), IID_IPersistFile));
  if (!persist || FAILED(persist->Load(Widen(path).c_str(), 0))) return std::nullopt;
  WCHAR target[MAX_PATH]{}, description[MAX_PATH]{};
  link->GetPath(target, MAX_PATH, nullptr, 0);
  link->GetDescription(description, MAX_PATH);
  Shortcut shortcut{.target = Narrow(target), .description = Narrow(description)};
  if (const Com<IPropertyStore> store(Query<IPropertyStore>(link.get(), IID_IPropertyStore)); store) {
    const PROPVARIANT pin = Property(store.get(), startPinOption),
                      exclude = Property(store.get(), excludeFromNew);
    shortcut.staysUnpinned = pin.vt == VT_UI4 && pin.ulVal == 1;
    shortcut.staysUnannounced = exclude.vt == VT_BOOL && exclude.boolVal == VARIANT_TRUE;
  }
  return shortcut;
}

bool KeepsShortcutProperties() {
  const ComLibrary com;
  const Com<IShellLinkW> link(NewLink());
  if (!link) return false;
  const Com<IPropertyStore> store(Query<IPropertyStore>(link.get(), IID_IPropertyStore));
  if (!store) return false;
  PROPVARIANT value{};
  value.vt = VT_UI4;
  value.ulVal = 1;
  store->SetValue(startPinOption, value);
  return Property(store.get(), startPinOption).vt == VT_UI4;
}

}  // namespace host
