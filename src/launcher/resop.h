// Single resources of a launcher: written into an open resource update, read from a loaded module. The update
// and the module stay the caller's. Failures are xdt::exc_tag.
#pragma once

#include "common/host_application.h"
#include "launcher/version_info.h"

inline constexpr WORD BundleIdResource = 260;  // RT_RCDATA, UTF-16 text with its NUL
inline constexpr WORD AppNameResource = 259;   // RT_RCDATA, the same
inline constexpr WORD IconGroupId = 448;       // RT_GROUP_ICON; its images are 449 and up
inline constexpr WORD MarkerResource = 57005;  // RT_RCDATA, written last
inline constexpr WORD languageNeutral = 0;
inline constexpr WORD languageDefault = 0x0400;  // LANG_NEUTRAL, SUBLANG_DEFAULT

// Writes RT_RCDATA `identifier`, `size` bytes. Raises "UpdateResource(RT_RCDATA) failed".
void WriteRcData(HANDLE update, const void* data, std::size_t size, WORD identifier, WORD language);

// RT_RCDATA `identifier` of `module`: at least one byte, valid while the module stays loaded. Raises when
// there is none or it cannot be read.
std::span<const std::byte> ReadRcData(HMODULE module, WORD identifier, WORD language);

// Writes the version information that names `app`. Raises "UpdateResource(RT_VERSION) failed".
void WriteVersionInfo(HANDLE update, const MacAppInfo& app);

// Writes RT_VERSION `identifier` of these parts. Raises "UpdateResource(RT_VERSION) failed".
void WriteVersionResource(HANDLE update, const VersionFixedInfo& fixed, const VersionStrings& strings,
                          const std::vector<VersionTranslation>& translations, WORD identifier);

// Converts one bitmap and writes it as RT_ICON `identifier`; returns the icon image. Raises
// "UpdateResource(RT_ICON) failed" and what the conversion raises.
std::vector<std::byte> WriteIcon(HANDLE update, HostBitmap bitmap, WORD identifier);

// Writes every bitmap that can be converted as an icon image, numbered from `identifier` + 1 on with a gap
// for each that cannot, and the group that lists them. Raises "icon group list is empty" when none could, and
// "UpdateResource(RT_GROUP_ICON) failed".
void WriteIconGroup(HANDLE update, const HostBitmapList& bitmaps, WORD identifier);
