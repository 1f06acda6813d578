// The bytes of the gate: envelopes, items and bitmaps, written here once for the host and for those who test
// with it, apart from the module's own encoding, so that the two check each other.
#pragma once

#include <string_view>

#include "guest/bytes.h"

namespace host {

// What the guest sends and receives: a code, version 3, `result`, a reserved 0, the size of `data`, and
// `data`. The sharing code is the guest's announcement, too.
inline constexpr std::uint32_t announceCode = 1, sharingCode = 100, listCode = 102, iconsCode = 103,
                               detailsCode = 104;
inline constexpr std::size_t envelopeHeader = 20;
Bytes Envelope(std::uint32_t code, std::span<const std::byte> data = {}, std::uint32_t result = 0);

// Types of items.
inline constexpr std::uint32_t numberItem = 1, bitmapItem = 2, textItem = 3, flagItem = 4,
                               defaultTypeItem = 5, schemeItem = 6;
inline constexpr std::size_t itemHeader = 12;

// Items behind each other: index, type, size, value. The indexes count up.
class Items {
 public:
  Items& Add(std::uint32_t type, std::span<const std::byte> value);
  Items& Text(std::uint32_t type, std::string_view text);  // with a NUL behind it
  Items& Number(std::uint32_t type, std::uint32_t number);

  const Bytes& bytes() const { return bytes_; }

 private:
  Bytes bytes_;
  std::uint32_t count_ = 0;
};

struct Item {
  std::uint32_t index = 0, type = 0;
  std::span<const std::byte> value;
};
// The item at the start of `data`, cut off it; false, and nothing changed, where no whole item is.
bool TakeItem(std::span<const std::byte>& data, Item& item);

// The 54 header bytes of an uncompressed BMP file with `bits` (24 or 32) a pixel, and as many zero bytes as
// its pixels take: rows bottom-up, each padded to a multiple of 4.
Bytes BlankBitmap(std::uint32_t width, std::uint32_t height, std::uint32_t bits = 32);

}  // namespace host
