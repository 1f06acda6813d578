// Writes a resource tree into an image. Where a section of its own holds the directory and can take the new
// one, that section grows or shrinks in place; no other section ever changes its address. Otherwise the tree
// goes to a new section behind all others, and what it leaves behind stays as it was, renamed ".rsrcold".
#include <algorithm>
#include <utility>

#include "pe_image.h"

namespace platform {
namespace {

constexpr std::uint64_t addressLimit = 0x80000000;

std::uint64_t AlignUp(std::uint64_t value, std::uint64_t step) {
  return (value + step - 1) / step * step;
}

void Put(Bytes& bytes, std::size_t offset, std::uint32_t value, std::size_t width) {
  for (std::size_t i = 0; i < width; ++i) bytes[offset + i] = static_cast<std::byte>(value >> (8 * i));
}

// ---- The tree in its stored form -----------------------------------------------------------------------

// Directories level by level, then data entries, names and data, each item of data at a multiple of 8.
class TreeWriter {
 public:
  // False when the tree is too large for the format.
  bool Write(const ResourceTree& tree) {
    std::size_t names = directorySize(tree), languages = names, entries = 0, leaves = 0, text = 0;
    std::uint64_t data = 0;
    const auto measure = [&](const ResourceName& name) {
      if (const auto* unit = std::get_if<std::u16string>(&name)) text += 2 + 2 * unit->size();
    };
    for (const auto& [type, children] : tree) {
      measure(type);
      languages += directorySize(children);
      for (const auto& [name, variants] : children) {
        measure(name);
        entries += directorySize(variants);
        leaves += variants.size();
        for (const auto& [language, resource] : variants) data += AlignUp(resource.data.size(), 8);
      }
    }
    entries += languages;
    text_ = entries + leaves * 16;
    data_ = AlignUp(text_ + text, 8);
    if (data_ + data >= addressLimit) return false;
    bytes_.resize(data_ + data);

    WriteDirectory(0, tree, [&](const ResourceNames& children) {
      const std::size_t here = std::exchange(names, names + directorySize(children));
      WriteDirectory(here, children, [&](const ResourceLanguages& variants) {
        const std::size_t inner = std::exchange(languages, languages + directorySize(variants));
        WriteDirectory(inner, variants, [&](const Resource& resource) {
          WriteLeaf(entries, resource);
          return std::exchange(entries, entries + 16);
        });
        return inner | subdirectory;
      });
      return here | subdirectory;
    });
    return fits_;
  }

  std::size_t size() const { return bytes_.size(); }

  // The stored form for a directory at `address`.
  Bytes At(DWORD address) && {
    for (const auto& [entry, offset] : leaves_) Put(bytes_, entry, address + offset, 4);
    return std::move(bytes_);
  }

 private:
  static constexpr std::size_t subdirectory = 0x80000000;  // also marks a name that is text

  static std::size_t directorySize(const auto& children) { return 16 + 8 * children.size(); }

  template <class Children, class WriteChild>
  void WriteDirectory(std::size_t offset, const Children& children, WriteChild writeChild) {
    std::size_t texts = 0;
    std::size_t entry = offset + 16;
    for (const auto& [name, child] : children) {
      const std::size_t field = NameField(name);
      texts += field >= subdirectory ? 1 : 0;
      Put32(entry, field);
      Put32(entry + 4, writeChild(child));
      entry += 8;
    }
    const std::size_t numbers = children.size() - texts;
    fits_ = fits_ && texts <= 0xFFFF && numbers <= 0xFFFF;
    Put(bytes_, offset + 12, static_cast<std::uint32_t>(texts), 2);
    Put(bytes_, offset + 14, static_cast<std::uint32_t>(numbers), 2);
  }

  static std::size_t NameField(WORD language) { return language; }
  std::size_t NameField(const ResourceName& name) {
    const auto* text = std::get_if<std::u16string>(&name);
    if (!text) return std::get<WORD>(name);
    Put(bytes_, text_, static_cast<std::uint32_t>(text->size()), 2);
    for (std::size_t i = 0; i < text->size(); ++i) Put(bytes_, text_ + 2 + 2 * i, (*text)[i], 2);
    return std::exchange(text_, text_ + 2 + 2 * text->size()) | subdirectory;
  }

  void WriteLeaf(std::size_t entry, const Resource& resource) {
    leaves_.emplace_back(entry, static_cast<DWORD>(data_));
    Put32(entry + 4, resource.data.size());
    Put32(entry + 8, resource.codePage);
    std::copy(resource.data.begin(), resource.data.end(),
              bytes_.begin() + static_cast<std::ptrdiff_t>(data_));
    data_ += AlignUp(resource.data.size(), 8);
  }

  void Put32(std::size_t offset, std::size_t value) {
    Put(bytes_, offset, static_cast<std::uint32_t>(value), 4);
  }

  Bytes bytes_;
  std::size_t text_ = 0;  // where the next name and the next data go
  std::size_t data_ = 0;
  std::vector<std::pair<std::size_t, DWORD>> leaves_;  // data entries with the offset of their data
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

void DropCertificate(PeImage& image) {
  // The one directory whose address is an offset in the file.
  const auto [offset, size] = image.directory(PeImage::Certificate);
  if (offset == 0) return;
  image.Put32(image.directories + PeImage::Certificate * 8, 0);
  image.Put32(image.directories + PeImage::Certificate * 8 + 4, 0);
  const bool last = std::uint64_t{offset} + size == image.file.size();
  if (last && offset >= EndOfSections(image)) image.file.resize(offset);
}

// Makes `removed` bytes at `offset` into `added` zero bytes, and moves every offset in the file that lies
// behind them.
void Splice(PeImage& image, std::size_t offset, std::size_t removed, std::size_t added) {
  const std::size_t behind = offset + removed;
  const auto shift = [&](std::size_t field) {
    const DWORD value = image.Get32(field);
    if (value != 0 && value >= behind) image.Put32(field, static_cast<DWORD>(value + added - removed));
  };
  shift(image.fileHeader + 8);  // symbol table
  const auto debug = image.directory(PeImage::Debug);
  // Headers that a crafted section claims as its own are not touched.
  if (const auto entries = image.OffsetOf(debug.address, debug.size);
      entries && *entries >= image.headerSize()) {
    for (std::size_t i = 0; i + 28 <= debug.size; i += 28) shift(*entries + i + 24);
  }
  for (std::size_t i = 0; i < image.sections.size(); ++i) {
    const std::size_t field = image.sectionTable + i * PeImage::sectionHeaderSize + 20;
    if (image.sections[i].rawSize == 0) continue;
    shift(field);
    image.sections[i].rawOffset = image.Get32(field);
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
    if (which != PeImage::Resources && which != PeImage::Certificate && inOwn(image.directory(which).address))
      return {};
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

void NameSection(PeImage& image, std::size_t index, std::string_view name) {
  for (std::size_t i = 0; i < 8; ++i) {
    const char c = i < name.size() ? name[i] : '\0';
    image.file[image.sectionTable + index * PeImage::sectionHeaderSize + i] = static_cast<std::byte>(c);
  }
}

// `by` is negative, modulo 2^32, for a section that became smaller.
void GrowInitialisedData(PeImage& image, std::size_t by) {
  const std::size_t field = image.optionalHeader + 8;
  image.Put32(field, static_cast<DWORD>(image.Get32(field) + by));
}

// Room in the headers for one more section: unused bytes, or whole steps of the file alignment put behind
// them while the first section starts late enough.
bool MakeHeaderRoom(PeImage& image) {
  constexpr std::size_t mostSections = 96;
  if (image.sections.size() >= mostSections) return false;
  const std::size_t table = image.sectionTable + image.sections.size() * PeImage::sectionHeaderSize;
  const std::size_t needed = table + PeImage::sectionHeaderSize;
  const std::size_t headers = image.headerSize();
  const auto begin = image.file.begin();
  if (std::any_of(begin + static_cast<std::ptrdiff_t>(table),
                  begin + static_cast<std::ptrdiff_t>(std::min(needed, headers)),
                  [](std::byte byte) { return byte != std::byte{}; })) {
    return false;
  }
  for (const auto& section : image.sections) {
    if (section.rawSize != 0 && section.rawOffset < headers) return false;
  }
  if (needed <= headers) return true;
  const std::size_t added = AlignUp(needed - headers, image.fileAlignment());
  if (!image.sections.empty() && headers + added > image.sections.front().address) return false;
  Splice(image, headers, 0, added);
  image.Put32(image.optionalHeader + 60, static_cast<DWORD>(headers + added));
  return true;
}

// A section of `size` bytes at the end of the image; its index, or nothing when there is no room.
std::optional<std::size_t> AppendSection(PeImage& image, std::size_t size) {
  if (!MakeHeaderRoom(image)) return {};
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
  NameSection(image, index, ".rsrc");
  constexpr DWORD initialisedData = 0x40, readable = 0x40000000;
  image.Put32(image.sectionTable + index * PeImage::sectionHeaderSize + 36, initialisedData | readable);
  GrowInitialisedData(image, rawSize);
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
  GrowInitialisedData(image, rawSize - section.rawSize);
  section.rawSize = static_cast<DWORD>(rawSize);
  // Sections must follow each other without a gap, so one in the middle never becomes smaller in memory.
  section.virtualSize = static_cast<DWORD>(last ? size : std::max(size, extent));
  WriteSection(image, index);
  return true;
}

// The sum of all 16-bit words with the carry fed back, the sum's own field taken as zero, plus the size.
DWORD Checksum(const PeImage& image) {
  std::uint64_t sum = 0;
  for (std::size_t i = 0; i + 1 < image.file.size(); i += 2) sum += image.Get16(i);
  if (image.file.size() % 2 != 0) sum += std::to_integer<WORD>(image.file.back());
  while (sum > 0xFFFF) sum = (sum & 0xFFFF) + (sum >> 16);
  return static_cast<DWORD>(sum + image.file.size());
}

}  // namespace

std::optional<Bytes> ReplaceResources(PeImage image, const ResourceTree& tree) {
  if (tree.empty() && image.directory(PeImage::Resources).address == 0) return std::move(image.file);
  if (image.directoryCount <= PeImage::Resources) return {};
  DropCertificate(image);
  TreeWriter writer;
  if (!writer.Write(tree)) return {};
  const std::size_t size = writer.size();

  auto index = OwnSection(image);
  if (!index || !Resize(image, *index, size)) {
    if (index) NameSection(image, *index, ".rsrcold");
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
  constexpr std::size_t checksumField = 64;
  image.Put32(image.optionalHeader + checksumField, 0);
  image.Put32(image.optionalHeader + checksumField, Checksum(image));
  return std::move(image.file);
}

}  // namespace platform
