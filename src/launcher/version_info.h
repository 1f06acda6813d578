// The platform's version information as bytes: VS_VERSIONINFO with one string table and one translation list.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

#include "common/text.h"

// VS_FIXEDFILEINFO without its signature and structure version, in the platform's order.
struct VersionFixedInfo {
  std::uint32_t fileVersionMS;
  std::uint32_t fileVersionLS;
  std::uint32_t productVersionMS;
  std::uint32_t productVersionLS;
  std::uint32_t fileFlagsMask;
  std::uint32_t fileFlags;
  std::uint32_t fileOS;
  std::uint32_t fileType;
  std::uint32_t fileSubtype;
  std::uint32_t fileDateMS;
  std::uint32_t fileDateLS;
};

// Keys and values of the string table, written in the order of the keys' code units.
using VersionStrings = std::map<WideString, WideString>;

struct VersionTranslation {
  std::uint16_t language;
  std::uint16_t codePage;
};

// The whole resource. Its length fields have 16 bits: values past 64 KB in all wrap around in them.
std::vector<std::byte> BuildVersionInfo(const VersionFixedInfo& fixed, const VersionStrings& strings,
                                        const std::vector<VersionTranslation>& translations);
