// Version blocks: length, value length, type, key, padding, then the value or the inner blocks. A block's
// length is known only when its contents have been written, and is filled in then.
#include "launcher/version_info.h"

#include <cstring>

namespace {

constexpr std::uint16_t binary = 0;
constexpr std::uint16_t text = 1;

class Writer {
 public:
  template <class Number>
  void Put(Number number) {
    Append(&number, sizeof number);
  }

  // With its NUL, padded to a multiple of 4.
  void PutText(const WideString& value) {
    Append(value.c_str(), (value.size() + 1) * sizeof(WCHAR));
    bytes_.resize((bytes_.size() + 3) & ~std::size_t{3});
  }

  // One block; `contents` writes what follows the key. All blocks start and end on a multiple of 4.
  template <class Contents>
  void Block(const WideString& key, std::size_t valueLength, std::uint16_t type, Contents contents) {
    const std::size_t start = bytes_.size();
    Put(std::uint16_t{0});
    Put(static_cast<std::uint16_t>(valueLength));
    Put(type);
    PutText(key);
    contents();
    const auto length = static_cast<std::uint16_t>(bytes_.size() - start);
    std::memcpy(bytes_.data() + start, &length, sizeof length);
  }

  std::vector<std::byte> Take() { return std::move(bytes_); }

 private:
  void Append(const void* data, std::size_t size) {
    const auto* first = static_cast<const std::byte*>(data);
    bytes_.insert(bytes_.end(), first, first + size);
  }

  std::vector<std::byte> bytes_;
};

}  // namespace

std::vector<std::byte> BuildVersionInfo(const VersionFixedInfo& fixed, const VersionStrings& strings,
                                        const std::vector<VersionTranslation>& translations) {
  static_assert(sizeof(VersionFixedInfo) == 44 && sizeof(VersionTranslation) == 4);
  Writer out;
  out.Block(TEXT("VS_VERSION_INFO"), 8 + sizeof fixed, binary, [&] {
    out.Put(std::uint32_t{0xFEEF04BD});  // signature
    out.Put(std::uint32_t{0x00010000});  // structure version
    out.Put(fixed);
    out.Block(TEXT("StringFileInfo"), 0, text, [&] {
      out.Block(TEXT("040904B0"), 0, text, [&] {
        for (const auto& entry : strings) {
          out.Block(entry.first, entry.second.size() + 1, text, [&] { out.PutText(entry.second); });
        }
      });
    });
    out.Block(TEXT("VarFileInfo"), 0, text, [&] {
      out.Block(TEXT("Translation"), translations.size() * sizeof(VersionTranslation), binary, [&] {
        for (const VersionTranslation& translation : translations) out.Put(translation);
      });
    });
  });
  return out.Take();
}
