// Writes a resource tree into an image. Where a section of its own holds the directory and can take the new
// one, that section grows or shrinks in place; no other section ever changes its address. Otherwise the tree
// goes to a new section behind all others, and what it leaves behind stays as it was.
#include <algorithm>
#include <cstring>
#include <utility>

#include "pe_image.h"

namespace platform {
namespace {

constexpr std::uint64_t addressLimit = 0x80000000;

std::uint64_t AlignUp(std::uint64_t value, std::uint64_t step) {
  return (value + step - 1) / step * step;
}

// ---- The tree in its stored form -----------------------------------------------------------------------

// Depth first: a directory is followed by its names and by what its entries point to, a data entry by its
// data. Each of these parts begins at a multiple of 8.
class TreeWriter {
 public:
  explicit TreeWriter(const ResourceTree& tree) { Write(tree); }

  // False when the tree is too large for the format.
  bool fits() const { return fits_ && bytes_.size() < addressLimit; }
  std::size_t size() const { return bytes_.size(); }

  // The stored form for a directory at `address`.
  Bytes At(DWORD address) && {
    for (const auto& [entry, data] : leaves_) Put(entry, address + data, 4);
    return std::move(bytes_);
  }

 private:
  static constexpr std::size_t subdirectory = 0x80000000;  // also marks a name that is text

  // Writes a directory; the answer, like that of the others, is what the entry that points to it holds.
  template <class Name, class Child>
  std::size_t Write(const std::map<Name, Child>& children) {
    const std::size_t here = Append(16 + 8 * children.size());
    std::size_t entry = here + 16, texts = 0;
    for (const auto& [name, child] : children) {
      const std::size_t field = Write(ResourceName(name));
      if (field >= subdirectory) ++texts;
      Put(entry, field, 4);
      Put(entry + 4, Write(child), 4);
      entry += 8;
    }
    const std::size_t numbers = children.size() - texts;
    fits_ = fits_ && texts <= 0xFFFF && numbers <= 0xFFFF;
    Put(here + 12, texts, 2);
    Put(here + 14, numbers, 2);
    return here | subdirectory;
  }

  std::size_t Write(const ResourceName& name) {
    const auto* text = std::get_if<std::u16string>(&name);
    if (!text) return std::get<WORD>(name);
    const std::size_t here = Append(2 + 2 * text->size());
    Put(here, text->size(), 2);
    for (std::size_t i = 0; i < text->size(); ++i) Put(here + 2 + 2 * i, (*text)[i], 2);
    return here | subdirectory;
  }

  std::size_t Write(const Resource& resource) {
    const std::size_t entry = Append(16), data = Append(resource.data.size());
    leaves_.emplace_back(entry, data);
    Put(entry + 4, resource.data.size(), 4);
    Put(entry + 8, resource.codePage, 4);
    std::copy(resource.data.begin(), resource.data.end(), bytes_.begin() + static_cast<std::ptrdiff_t>(data));
    return entry;
  }

  std::size_t Append(std::size_t size) {
    const std::size_t here = bytes_.size();
    bytes_.resize(AlignUp(here + size, 8));
    return here;
  }

  void Put(std::size_t offset, std::size_t value, std::size_t width) {
    for (std::size_t i = 0; i < width; ++i) bytes_[offset + i] = static_cast<std::byte>(value >> (8 * i));
  }

  Bytes bytes_;
  std::vector<std::pair<std::size_t, std::size_t>> leaves_;  // data entries with the offset of their data
  bool fits_ = true;
};

// ---- The image around it -------------------------------------------------------------------------------

std::size_t EndOfSections(const PeImage& image) {
  std::size_t end = image.headerSize();
  for (const auto& section : image.sections) {
    if (section.rawSize != 0) end = std::max(end, std::size_t{section.rawOffset} + section.rawSize);
  }
  return end;
}

// What an update would have to carry along, and no template has.
bool HasMoreThanSections(const PeImage& image) {
  const DWORD symbolTable = image.Get32(image.fileHeader + 8);
  return symbolTable != 0 || image.directory(PeImage::Certificate).address != 0 ||
         image.directory(PeImage::Debug).address != 0;
}

// Makes `removed` bytes at `offset` into `added` zero bytes, and moves the sections that lie behind them.
void Splice(PeImage& image, std::size_t offset, std::size_t removed, std::size_t added) {
  const std::size_t behind = offset + removed;
  for (std::size_t i = 0; i < image.sections.size(); ++i) {
    auto& section = image.sections[i];
    if (section.rawSize == 0 || section.rawOffset < behind) continue;
    section.rawOffset = static_cast<DWORD>(section.rawOffset + added - removed);
    image.Put32(image.sectionTable + i * PeImage::sectionHeaderSize + 20, section.rawOffset);
  }
  const auto at = image.file.begin() + static_cast<std::ptrdiff_t>(offset);
  const auto rest = image.file.erase(at, at + static_cast<std::ptrdiff_t>(removed));
  image.file.insert(rest, added, std::byte{});
}

// The section that holds the resource directory and nothing that anything else points to.
std::optional<std::size_t> OwnSection(const PeImage& image) {
  const DWORD start = image.directory(PeImage::Resources).address;
  const auto* own = image.SectionAt(start);
  if (start == 0 || !own || own->address != start) return {};
  const auto inOwn = [&](DWORD address) { return address != 0 && image.SectionAt(address) == own; };
  for (std::size_t i = 0; i < image.directoryCount; ++i) {
    const auto which = static_cast<PeImage::Directory>(i);
    if (which != PeImage::Resources && inOwn(image.directory(which).address)) return {};
  }
  if (inOwn(image.Get32(image.optionalHeader + 16))) return {};  // the entry point
  const std::size_t begin = own->rawOffset, end = begin + own->rawSize;
  if (begin < image.headerSize()) return {};
  for (const auto& other : image.sections) {
    const bool apart = other.rawOffset >= end || other.rawOffset + std::size_t{other.rawSize} <= begin;
    if (&other != own && other.rawSize != 0 && !apart) return {};
  }
  return static_cast<std::size_t>(own - image.sections.data());
}

void WriteSection(PeImage& image, std::size_t index) {
  const auto& section = image.sections[index];
  const std::size_t header = image.sectionTable + index * PeImage::sectionHeaderSize;
  image.Put32(header + 8, section.virtualSize);
  image.Put32(header + 12, section.address);
  image.Put32(header + 16, section.rawSize);
  image.Put32(header + 20, section.rawOffset);
}

// Whether the headers have unused bytes for one more section.
bool HasHeaderRoom(const PeImage& image) {
  const std::size_t table = image.sectionTable + image.sections.size() * PeImage::sectionHeaderSize;
  const std::size_t needed = table + PeImage::sectionHeaderSize;
  if (needed > image.headerSize()) return false;
  for (const auto& section : image.sections) {
    if (section.rawSize != 0 && section.rawOffset < image.headerSize()) return false;
  }
  return std::all_of(image.file.begin() + static_cast<std::ptrdiff_t>(table),
                     image.file.begin() + static_cast<std::ptrdiff_t>(needed),
                     [](std::byte byte) { return byte == std::byte{}; });
}

// A section of `size` bytes at the end of the image; its index, or nothing when there is no room.
std::optional<std::size_t> AppendSection(PeImage& image, std::size_t size) {
  if (!HasHeaderRoom(image)) return {};
  std::uint64_t used = image.headerSize();
  for (const auto& section : image.sections) {
    used = std::max(used, std::uint64_t{section.address} + section.extent());
  }
  const std::uint64_t address = AlignUp(used, image.sectionAlignment());
  const std::size_t end = EndOfSections(image);
  const std::size_t offset = AlignUp(end, image.fileAlignment());
  const std::size_t rawSize = AlignUp(size, image.fileAlignment());
  if (address + rawSize > addressLimit || image.file.size() + rawSize > addressLimit) return {};
  Splice(image, end, 0, offset - end + rawSize);

  const std::size_t index = image.sections.size();
  image.sections.push_back({static_cast<DWORD>(size), static_cast<DWORD>(address),
                            static_cast<DWORD>(rawSize), static_cast<DWORD>(offset)});
  image.Put16(image.fileHeader + 2, static_cast<WORD>(index + 1));
  WriteSection(image, index);
  constexpr DWORD initialisedData = 0x40, readable = 0x40000000;
  const std::size_t header = image.sectionTable + index * PeImage::sectionHeaderSize;
  std::memcpy(&image.file[header], ".rsrc", 5);
  image.Put32(header + 36, initialisedData | readable);
  return index;
}

// Resizes a section in place; false when the next one is too near.
bool Resize(PeImage& image, std::size_t index, std::size_t size) {
  auto& section = image.sections[index];
  const bool last = index + 1 == image.sections.size();
  const std::uint64_t limit = last ? addressLimit : image.sections[index + 1].address;
  const std::size_t rawSize = AlignUp(size, image.fileAlignment());
  if (section.address + std::uint64_t{size} > limit) return false;
  if (image.file.size() + rawSize > addressLimit) return false;
  const std::size_t extent = section.extent();  // of the size in the file where there is no other
  Splice(image, section.rawOffset, section.rawSize, rawSize);
  section.rawSize = static_cast<DWORD>(rawSize);
  // Sections must follow each other without a gap, so one in the middle never becomes smaller in memory.
  section.virtualSize = static_cast<DWORD>(last ? size : std::max(size, extent));
  WriteSection(image, index);
  return true;
}

}  // namespace

std::optional<Bytes> ReplaceResources(PeImage image, const ResourceTree& tree) {
  if (tree.empty() && image.directory(PeImage::Resources).address == 0) return std::move(image.file);
  if (image.directoryCount <= PeImage::Resources || HasMoreThanSections(image)) return {};
  TreeWriter writer(tree);
  if (!writer.fits()) return {};
  const std::size_t size = writer.size();

  auto index = OwnSection(image);
  if (!index || !Resize(image, *index, size)) {
    index = AppendSection(image, size);
    if (!index) return {};
  }
  const auto section = image.sections[*index];
  const Bytes stored = std::move(writer).At(section.address);
  std::copy(stored.begin(), stored.end(), image.file.begin() + section.rawOffset);

  const auto& last = image.sections.back();
  const std::uint64_t end = AlignUp(std::uint64_t{last.address} + last.extent(), image.sectionAlignment());
  image.Put32(image.optionalHeader + 56, static_cast<DWORD>(end));
  image.Put32(image.directories + PeImage::Resources * 8, section.address);
  image.Put32(image.directories + PeImage::Resources * 8 + 4, static_cast<DWORD>(size));
  image.Put32(image.optionalHeader + 64, 0);  // no checksum
  return std::move(image.file);
}

}  // namespace platform
