// Reads executable files. Offsets and sizes from the file are 32 bits wide and their sums 64, so no check can
// wrap around; what a crafted directory may cost is bounded by the size of its file.
#include "pe_image.h"

#include <algorithm>
#include <bit>

namespace platform {
namespace {

constexpr std::uint64_t addressLimit = 0x80000000;

bool Within(std::uint64_t offset, std::uint64_t size, std::uint64_t whole) {
  return offset <= whole && size <= whole - offset;
}

bool ReadSections(PeImage& image, WORD count) {
  if (!Within(image.sectionTable, count * PeImage::sectionHeaderSize, image.headerSize())) return false;
  std::uint64_t free = 0;  // the lowest address that no section before this one has
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t header = image.sectionTable + i * PeImage::sectionHeaderSize;
    const PeImage::Section section{image.Get32(header + 8), image.Get32(header + 12),
                                   image.Get32(header + 16), image.Get32(header + 20)};
    if (section.rawSize != 0 && !Within(section.rawOffset, section.rawSize, image.file.size())) return false;
    if (section.address < free || !Within(section.address, section.extent(), addressLimit)) return false;
    free = section.address + std::uint64_t{section.extent()};
    image.sections.push_back(section);
  }
  return true;
}

// Reads one resource directory tree. Directories and names may be shared, and a cycle of directories ends at
// the third level, but each visit is paid for, at most four times the size of the file in all.
class DirectoryReader {
 public:
  explicit DirectoryReader(const PeImage& image)
      : image_(image), root_(image.directory(PeImage::Resources)), budget_(4 * image.file.size()) {}

  std::optional<ResourceTree> Read() {
    if (root_.address == 0) return ResourceTree();
    if (!image_.OffsetOf(root_.address, 16)) return {};
    const auto* section = image_.SectionAt(root_.address);
    start_ = section->rawOffset + (root_.address - section->address);
    size_ = section->rawSize - (root_.address - section->address);

    ResourceTree tree;
    if (!Read(subdirectory, tree)) return {};
    return tree;
  }

 private:
  static constexpr DWORD subdirectory = 0x80000000;  // also marks a name that is text

  bool Pay(std::uint64_t bytes) {
    if (bytes > budget_) return false;
    budget_ -= bytes;
    return true;
  }

  // Offsets in directories count from the root's first byte.
  bool Has(DWORD offset, DWORD size) const { return Within(offset, size, size_); }

  // What the second field of an entry points to: another directory, or a data entry.
  template <class Name, class Child>
  bool Read(DWORD target, std::map<Name, Child>& children) {
    const DWORD offset = target & ~subdirectory;
    if ((target & subdirectory) == 0 || !Has(offset, 16)) return false;
    const DWORD count = DWORD{image_.Get16(start_ + offset + 12)} + image_.Get16(start_ + offset + 14);
    if (!Has(offset + 16, count * 8) || !Pay(16 + count * 8)) return false;
    for (DWORD i = 0; i < count; ++i) {
      const std::size_t entry = start_ + offset + 16 + i * 8;
      Name name;
      if (!ReadName(image_.Get32(entry), name)) return false;
      if (!Read(image_.Get32(entry + 4), children[name])) return false;
    }
    return true;
  }

  bool Read(DWORD offset, Resource& resource) {
    if (!Has(offset, 16)) return false;
    const DWORD size = image_.Get32(start_ + offset + 4);
    resource = {{}, image_.Get32(start_ + offset + 8)};
    if (size == 0) return true;
    const auto data = image_.OffsetOf(image_.Get32(start_ + offset), size);
    if (!data || !Pay(size)) return false;
    const auto bytes = std::span(image_.file).subspan(*data, size);
    resource.data.assign(bytes.begin(), bytes.end());
    return true;
  }

  static bool ReadName(DWORD field, WORD& number) {
    number = static_cast<WORD>(field);
    return field <= 0xFFFF;
  }

  bool ReadName(DWORD field, ResourceName& name) {
    if ((field & subdirectory) == 0) return ReadName(field, name.emplace<WORD>());
    const DWORD offset = field & ~subdirectory;
    if (!Has(offset, 2)) return false;
    const DWORD length = image_.Get16(start_ + offset);
    if (!Has(offset + 2, length * 2) || !Pay(length * 2)) return false;
    auto& text = name.emplace<std::u16string>();
    for (DWORD i = 0; i < length; ++i) text += char16_t{image_.Get16(start_ + offset + 2 + i * 2)};
    return true;
  }

  const PeImage& image_;
  PeImage::Range root_;
  std::uint64_t budget_;
  std::size_t start_ = 0;  // offset of the root in the file
  std::size_t size_ = 0;   // bytes from there to the end of its section
};

}  // namespace

WORD PeImage::Get16(std::size_t offset) const {
  return static_cast<WORD>(std::to_integer<unsigned>(file[offset]) |
                           std::to_integer<unsigned>(file[offset + 1]) << 8);
}

DWORD PeImage::Get32(std::size_t offset) const {
  return Get16(offset) | static_cast<DWORD>(Get16(offset + 2)) << 16;
}

void PeImage::Put16(std::size_t offset, WORD value) {
  file[offset] = static_cast<std::byte>(LOBYTE(value));
  file[offset + 1] = static_cast<std::byte>(HIBYTE(value));
}

void PeImage::Put32(std::size_t offset, DWORD value) {
  Put16(offset, LOWORD(value));
  Put16(offset + 2, HIWORD(value));
}

PeImage::Range PeImage::directory(Directory which) const {
  if (which >= directoryCount) return {};
  return {Get32(directories + which * 8), Get32(directories + which * 8 + 4)};
}

const PeImage::Section* PeImage::SectionAt(DWORD address) const {
  for (const Section& section : sections) {
    if (address >= section.address && address - section.address < section.extent()) return &section;
  }
  return nullptr;
}

std::optional<std::size_t> PeImage::OffsetOf(DWORD address, DWORD size) const {
  const Section* section = SectionAt(address);
  if (!section || !Within(address - section->address, size, section->rawSize)) return {};
  return section->rawOffset + std::size_t{address - section->address};
}

std::optional<PeImage> ParseImage(Bytes file) {
  constexpr std::size_t dosHeaderSize = 64, fileHeaderSize = 20;
  PeImage image{};
  image.file = std::move(file);
  const std::size_t size = image.file.size();
  if (size < dosHeaderSize || image.Get16(0) != 0x5A4D) return {};
  const std::size_t signature = image.Get32(60);
  if (!Within(signature, 4 + fileHeaderSize, size) || image.Get32(signature) != 0x4550) return {};
  image.fileHeader = signature + 4;
  image.optionalHeader = image.fileHeader + fileHeaderSize;
  const WORD optionalSize = image.Get16(image.fileHeader + 16);
  if (!Within(image.optionalHeader, optionalSize, size) || optionalSize < 2) return {};
  const WORD magic = image.Get16(image.optionalHeader);
  if (magic != 0x10B && magic != 0x20B) return {};
  image.wide = magic == 0x20B;
  const std::size_t fixedSize = image.wide ? 112 : 96;
  if (optionalSize < fixedSize) return {};
  image.directories = image.optionalHeader + fixedSize;
  image.directoryCount = std::min<std::size_t>(image.Get32(image.directories - 4), 16);
  if (optionalSize < fixedSize + image.directoryCount * 8) return {};
  image.sectionTable = image.optionalHeader + optionalSize;

  const DWORD inFile = image.fileAlignment(), inMemory = image.sectionAlignment();
  if (!std::has_single_bit(inFile) || !std::has_single_bit(inMemory)) return {};
  if (inFile > inMemory || inFile > 0x10000 || image.headerSize() > size) return {};
  if (!ReadSections(image, image.Get16(image.fileHeader + 2))) return {};
  return image;
}

std::optional<ResourceTree> ReadResources(const PeImage& image) {
  return DirectoryReader(image).Read();
}

}  // namespace platform
