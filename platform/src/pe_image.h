// Executable files (PE32 and PE32+): headers, sections, and the resource directory as a tree.
// Everything in a file is suspect: an image exists only when its headers and sections lie within the file.
#pragma once

#include <windows.h>

#include <cstddef>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <variant>
#include <vector>

namespace platform {

using Bytes = std::vector<std::byte>;

// Text or a number. The order is that of the format: text first, by code units, then numbers.
using ResourceName = std::variant<std::u16string, WORD>;

struct Resource {
  Bytes data;
  DWORD codePage = 0;
};

using ResourceLanguages = std::map<WORD, Resource>;
using ResourceNames = std::map<ResourceName, ResourceLanguages>;
using ResourceTree = std::map<ResourceName, ResourceNames>;

struct PeImage {
  static constexpr std::size_t sectionHeaderSize = 40;
  enum Directory : std::size_t { Resources = 2, Certificate = 4, Debug = 6 };

  struct Section {
    DWORD virtualSize;  // as stored; see `extent`
    DWORD address;
    DWORD rawSize;
    DWORD rawOffset;
    DWORD extent() const { return virtualSize != 0 ? virtualSize : rawSize; }
  };
  struct Range {
    DWORD address;
    DWORD size;
  };

  Bytes file;
  std::size_t fileHeader;      // offset of the header behind the signature
  std::size_t optionalHeader;  // its fields up to 64 have the same offsets in PE32 and PE32+
  std::size_t directories;     // offset of the data directories
  std::size_t directoryCount;
  std::size_t sectionTable;
  std::vector<Section> sections;  // by ascending address, without overlap
  bool wide;                      // PE32+

  WORD Get16(std::size_t offset) const;
  DWORD Get32(std::size_t offset) const;
  void Put16(std::size_t offset, WORD value);
  void Put32(std::size_t offset, DWORD value);

  DWORD sectionAlignment() const { return Get32(optionalHeader + 32); }
  DWORD fileAlignment() const { return Get32(optionalHeader + 36); }
  DWORD headerSize() const { return Get32(optionalHeader + 60); }
  Range directory(Directory which) const;  // zeros when there is none

  // The section that has `address`, null outside all of them.
  const Section* SectionAt(DWORD address) const;
  // The offset in the file of `size` bytes in memory; nothing unless the file holds them all in one section.
  std::optional<std::size_t> OffsetOf(DWORD address, DWORD size) const;
};

// Nothing for a file that is no image.
std::optional<PeImage> ParseImage(Bytes file);

// Nothing for a malformed directory; an image without one has no resources.
std::optional<ResourceTree> ReadResources(const PeImage& image);

// The file with `tree` for its resources and all else kept. Nothing when the image has no room for them, or
// a certificate, debug data or symbols, whose places in the file would be others then.
std::optional<Bytes> ReplaceResources(PeImage image, const ResourceTree& tree);

}  // namespace platform
