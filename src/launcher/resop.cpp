// Resource operations, one platform call each. The platform takes data that it does not change as non-const.
#include "launcher/resop.h"

#include <cstring>

#include "common/names.h"
#include "common/windows_version.h"
#include "launcher/bmp2ico.h"
#include "xdt/exception/exc_tag.h"

namespace {

bool WriteResource(HANDLE update, LPCWSTR type, WORD identifier, WORD language, const void* data,
                   std::size_t size) {
  return UpdateResourceW(update, type, MAKEINTRESOURCEW(identifier), language, const_cast<void*>(data),
                         static_cast<DWORD>(size)) != FALSE;
}

#pragma pack(push, 1)
struct IconGroupHeader {
  std::uint16_t reserved;
  std::uint16_t type;  // 1: icons
  std::uint16_t count;
};

struct IconGroupEntry {
  std::uint8_t width;  // 0 stands for 256, as in the next
  std::uint8_t height;
  std::uint8_t colorCount;
  std::uint8_t reserved;
  std::uint16_t planes;
  std::uint16_t bitCount;
  std::uint32_t bytesInRes;
  std::uint16_t id;
};
#pragma pack(pop)
static_assert(sizeof(IconGroupHeader) == 6 && sizeof(IconGroupEntry) == 14 &&
              offsetof(IconGroupEntry, bytesInRes) == 8 && offsetof(IconGroupEntry, id) == 12);

template <class Number>
Number ReadAt(const std::vector<std::byte>& bytes, std::size_t offset) {
  Number number;
  std::memcpy(&number, bytes.data() + offset, sizeof number);
  return number;
}

// The group's entry for an icon image, whose height is twice the picture's.
IconGroupEntry EntryOf(const std::vector<std::byte>& image, WORD identifier) {
  return {static_cast<std::uint8_t>(ReadAt<std::int32_t>(image, 4)),
          static_cast<std::uint8_t>(ReadAt<std::int32_t>(image, 8) / 2),
          0,
          0,
          ReadAt<std::uint16_t>(image, 12),
          ReadAt<std::uint16_t>(image, 14),
          static_cast<std::uint32_t>(image.size()),
          identifier};
}

}  // namespace

void WriteRcData(HANDLE update, const void* data, std::size_t size, WORD identifier, WORD language) {
  if (!WriteResource(update, RT_RCDATA, identifier, language, data, size)) {
    XDT_RAISE("UpdateResource(RT_RCDATA) failed");
  }
}

std::span<const std::byte> ReadRcData(HMODULE module, WORD identifier, WORD language) {
  const HRSRC resource = FindResourceExW(module, RT_RCDATA, MAKEINTRESOURCEW(identifier), language);
  if (resource == nullptr) XDT_RAISE("can't find resource specified");
  const DWORD size = SizeofResource(module, resource);
  if (size == 0) XDT_RAISE("can't get size of resource");
  const HGLOBAL loaded = LoadResource(module, resource);
  if (loaded == nullptr) XDT_RAISE("can't load resource");
  const void* data = LockResource(loaded);
  if (data == nullptr) XDT_RAISE("can't lock resource");
  return {static_cast<const std::byte*>(data), size};
}

void WriteVersionInfo(HANDLE update, const MacAppInfo& app) {
  constexpr std::uint32_t version1 = 0x00010000;
  constexpr VersionFixedInfo fixed = {
      version1,        0, version1, 0, 0x20, 0x20 /* VS_FF_SPECIALBUILD */, 4 /* VOS__WINDOWS32 */,
      1 /* VFT_APP */, 0, 0,        0};
  const VersionStrings strings = {
      {TEXT("Comments"), TEXT("Tessarine Shared Application")},
      {TEXT("CompanyName"), TEXT("Tessarine Software International, Inc.")},
      {TEXT("FileDescription"), FullName(app.name)},
      {TEXT("FileVersion"), TEXT("1.0.0.0")},
      {TEXT("ProductName"), TEXT("Tessarine Tools Center")},
      {TEXT("SpecialBuild"), TEXT("Tessarine Shared Application")},
  };
  WriteVersionResource(update, fixed, strings, {{0x0409, 0x04B0}}, 1);
}

void WriteVersionResource(HANDLE update, const VersionFixedInfo& fixed, const VersionStrings& strings,
                          const std::vector<VersionTranslation>& translations, WORD identifier) {
  const std::vector<std::byte> block = BuildVersionInfo(fixed, strings, translations);
  if (!WriteResource(update, RT_VERSION, identifier, languageDefault, block.data(), block.size())) {
    XDT_RAISE("UpdateResource(RT_VERSION) failed");
  }
}

std::vector<std::byte> WriteIcon(HANDLE update, HostBitmap bitmap, WORD identifier) {
  std::vector<std::byte> image = BitmapToIcon(bitmap, IsWindows2000OrEarlier());
  if (!WriteResource(update, RT_ICON, identifier, languageDefault, image.data(), image.size())) {
    XDT_RAISE("UpdateResource(RT_ICON) failed");
  }
  return image;
}

void WriteIconGroup(HANDLE update, const HostBitmapList& bitmaps, WORD identifier) {
  std::vector<IconGroupEntry> entries;
  WORD next = identifier;
  for (const HostBitmap& bitmap : bitmaps) {
    ++next;
    std::vector<std::byte> image;
    try {
      image = WriteIcon(update, bitmap, next);
    } catch (const std::exception&) {
      continue;  // left out; its identifier stays unused
    }
    entries.push_back(EntryOf(image, next));
  }
  if (entries.empty()) XDT_RAISE("icon group list is empty");
  const IconGroupHeader header{0, 1, static_cast<std::uint16_t>(entries.size())};
  std::vector<std::byte> group(sizeof header + entries.size() * sizeof(IconGroupEntry));
  std::memcpy(group.data(), &header, sizeof header);
  std::memcpy(group.data() + sizeof header, entries.data(), group.size() - sizeof header);
  if (!WriteResource(update, RT_GROUP_ICON, identifier, languageDefault, group.data(), group.size())) {
    XDT_RAISE("UpdateResource(RT_GROUP_ICON) failed");
  }
}
