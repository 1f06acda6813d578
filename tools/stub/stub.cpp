// Writes an executable image field by field. Sections start at the same step in the file and in memory except
// for its size: 512 bytes against a page, so each section here has one of either.
#include "stub.h"

#include <cstdint>
#include <string_view>

namespace stub {
namespace {

constexpr std::uint32_t fileStep = 0x200;
constexpr std::uint32_t pageStep = 0x1000;
constexpr std::uint32_t newHeader = 0x40;  // offset of the "PE" signature

class Image {
 public:
  std::size_t size() const { return bytes_.size(); }
  void U8(std::uint32_t value) { bytes_.push_back(static_cast<std::byte>(value & 0xFF)); }
  void U16(std::uint32_t value) { U8(value), U8(value >> 8); }
  void U32(std::uint32_t value) { U16(value), U16(value >> 16); }
  void Word(bool wide, std::uint64_t value) {  // as wide as an address
    U32(static_cast<std::uint32_t>(value));
    if (wide) U32(static_cast<std::uint32_t>(value >> 32));
  }
  void Text(std::string_view text, std::size_t width) {
    for (char c : text) U8(static_cast<unsigned char>(c));
    PadTo(bytes_.size() + width - text.size());
  }
  void PadTo(std::size_t size) { bytes_.resize(size); }
  void Align() { PadTo((size() + fileStep - 1) / fileStep * fileStep); }
  std::vector<std::byte> Take() { return std::move(bytes_); }

 private:
  std::vector<std::byte> bytes_;
};

struct Section {
  std::string_view name;
  std::vector<std::byte> bytes;
  std::uint32_t flags;
};

std::vector<std::byte> Code() {
  Image code;
  code.U16(0xC031);  // xor eax, eax
  code.U8(0xC3);     // ret
  return code.Take();
}

// One leaf: a directory each for the type, the name and the language, the data entry, the data.
std::vector<std::byte> Resources(std::uint32_t address) {
  constexpr std::string_view text = "template";
  constexpr std::uint32_t directorySize = 24, subdirectory = 0x80000000;
  Image image;
  const auto directory = [&](std::uint32_t id, std::uint32_t target) {
    image.PadTo(image.size() + 14);  // flags, time, version, number of names
    image.U16(1);
    image.U32(id);
    image.U32(target);
  };
  directory(10, subdirectory | directorySize);
  directory(1, subdirectory | 2 * directorySize);
  directory(0, 3 * directorySize);
  image.U32(address + 3 * directorySize + 16);
  image.U32(text.size());
  image.U32(0);
  image.U32(0);
  image.Text(text, text.size());
  return image.Take();
}

// One block without a fix-up that does anything: two of the padding kind.
std::vector<std::byte> Relocations() {
  Image image;
  image.U32(pageStep);
  image.U32(12);
  image.U32(0);
  return image.Take();
}

}  // namespace

std::vector<std::byte> MakeTemplateStub(const Layout& layout) {
  const std::uint32_t readable = 0x40000000, data = 0x40, code = 0x20000020, discardable = 0x02000000;
  std::vector<Section> sections{{".text", Code(), code | readable}};
  const auto nextAddress = [&] { return static_cast<std::uint32_t>(sections.size() + 1) * pageStep; };
  const std::uint32_t resources = layout.resources ? nextAddress() : 0;
  if (layout.resources) sections.push_back({".rsrc", Resources(resources), data | readable});
  const std::uint32_t relocations = layout.relocations ? nextAddress() : 0;
  if (layout.relocations) sections.push_back({".reloc", Relocations(), data | discardable | readable});
  const auto sizeOf = [&](std::string_view name) {
    for (const Section& section : sections) {
      if (section.name == name) return static_cast<std::uint32_t>(section.bytes.size());
    }
    return 0u;
  };

  Image image;
  image.U16(0x5A4D);  // "MZ"
  image.PadTo(newHeader - 4);
  image.U32(newHeader);
  image.U32(0x4550);  // "PE"
  image.U16(layout.wide ? 0x8664 : 0x014C);
  image.U16(static_cast<std::uint32_t>(sections.size()));
  image.U32(0);  // time stamp
  image.U32(0);  // symbols
  image.U32(0);
  image.U16(layout.wide ? 240 : 224);        // optional header
  image.U16(layout.wide ? 0x0022 : 0x0102);  // executable; large addresses or 32-bit machine
  image.U16(layout.wide ? 0x020B : 0x010B);
  image.U16(1);                                                           // linker version
  image.U32(fileStep);                                                    // code
  image.U32(static_cast<std::uint32_t>(sections.size() - 1) * fileStep);  // initialised data
  image.U32(0);                                                           // other data
  image.U32(pageStep);                                                    // entry
  image.U32(pageStep);                                                    // start of code
  if (!layout.wide) image.U32(sections.size() > 1 ? 2 * pageStep : 0);    // start of data
  image.Word(layout.wide, layout.wide ? 0x140000000 : 0x400000);
  image.U32(pageStep);
  image.U32(fileStep);
  for (const std::uint32_t version : {6u, 0u, 6u}) image.U32(version);  // system, image, subsystem
  image.U32(0);
  image.U32(nextAddress());                  // image size
  image.U32(fileStep);                       // header size
  image.U32(0);                              // checksum: optional for programs
  image.U16(2);                              // windows without a console
  image.U16(layout.wide ? 0x8160 : 0x8140);  // any address, no executable data
  for (const std::uint32_t size : {0x100000u, 0x1000u, 0x100000u, 0x1000u}) image.Word(layout.wide, size);
  image.U32(0);
  image.U32(16);  // data directories
  for (int i = 0; i < 16; ++i) {
    image.U32(i == 2 ? resources : i == 5 ? relocations : 0);
    image.U32(i == 2 ? sizeOf(".rsrc") : i == 5 ? sizeOf(".reloc") : 0);
  }
  for (std::size_t i = 0; i < sections.size(); ++i) {
    const auto step = static_cast<std::uint32_t>(i + 1);
    image.Text(sections[i].name, 8);
    image.U32(static_cast<std::uint32_t>(sections[i].bytes.size()));
    image.U32(step * pageStep);
    image.U32(fileStep);
    image.U32(step * fileStep);
    image.PadTo(image.size() + 12);
    image.U32(sections[i].flags);
  }
  image.Align();
  for (const Section& section : sections) {
    for (std::byte byte : section.bytes) image.U8(std::to_integer<std::uint32_t>(byte));
    image.Align();
  }
  return image.Take();
}

}  // namespace stub
