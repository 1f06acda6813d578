// Bitmap checks and conversion. All sizes are those of the platform's DIB layout, 32-bit unsigned; they are
// computed in 64 bits first, since width and height come from outside.
#include "launcher/bmp2ico.h"

#include <cstdint>
#include <cstring>
#include <limits>

#include "xdt/exception/exc_tag.h"

namespace {

#pragma pack(push, 1)
struct BmpHeader {
  std::uint16_t type;  // "BM"
  std::uint8_t skipped[12];
  std::uint32_t size;
  std::int32_t width;
  std::int32_t height;
  std::uint16_t planes;
  std::uint16_t bitCount;
  std::uint32_t compression;
  std::uint32_t sizeImage;
  std::int32_t xPelsPerMeter;
  std::int32_t yPelsPerMeter;
  std::uint32_t clrUsed;
  std::uint32_t clrImportant;
};
#pragma pack(pop)
constexpr std::size_t fileHeaderSize = 14;
constexpr std::size_t infoHeaderSize = 40;
constexpr std::size_t heightInInfoHeader = 8;
static_assert(offsetof(BmpHeader, size) == fileHeaderSize && offsetof(BmpHeader, height) == 22 &&
              offsetof(BmpHeader, compression) == 30 && offsetof(BmpHeader, clrImportant) == 50 &&
              sizeof(BmpHeader) == fileHeaderSize + infoHeaderSize);

struct Layout {
  std::size_t width;
  std::size_t height;
  std::size_t colorStride;  // bytes a row of pixels
  std::size_t maskStride;   // bytes a row of the mask: 4 for every started 32 pixels

  std::size_t colorSize() const { return colorStride * height; }
  std::size_t maskSize() const { return maskStride * height; }
};

Layout CheckedLayout(std::span<const std::byte> bitmap) {
  BmpHeader header;
  if (bitmap.size() < sizeof header) XDT_RAISE("Bitmap data is truncated");
  std::memcpy(&header, bitmap.data(), sizeof header);
  if (header.type != 0x4D42) XDT_RAISE("Invalid bmp header");
  if (header.size != infoHeaderSize) XDT_RAISE("Invalid bmp info header size");
  if (header.clrUsed != 0 || header.clrImportant != 0) XDT_RAISE("Bitmap palettes not supported");
  if (header.compression != 0) XDT_RAISE("Only uncompressed RGB bitmaps supported");
  if (header.bitCount != 32) XDT_RAISE("Only 32bpp bitmaps supported");
  if (header.planes != 1) XDT_RAISE("Only single-plane bitmaps supported");
  if (header.width <= 0 || header.height <= 0) XDT_RAISE("Invalid bmp dimensions");

  const auto width = static_cast<std::uint64_t>(header.width);
  const auto height = static_cast<std::uint64_t>(header.height);
  const std::uint64_t colorStride = (32 * width + 31) / 8 & ~std::uint64_t{3};
  const std::uint64_t maskStride = (width + 31) / 8 & ~std::uint64_t{3};
  constexpr std::uint64_t longest = std::numeric_limits<std::uint32_t>::max();
  if (colorStride > longest) XDT_RAISE("Invalid bmp dimensions");  // so that the next product fits 64 bits
  if (infoHeaderSize + (colorStride + maskStride) * height > longest) XDT_RAISE("Invalid bmp dimensions");
  if (bitmap.size() - sizeof header < colorStride * height) XDT_RAISE("Bitmap data is truncated");
  return {static_cast<std::size_t>(width), static_cast<std::size_t>(height),
          static_cast<std::size_t>(colorStride), static_cast<std::size_t>(maskStride)};
}

constexpr std::size_t groupSize = 32;  // bytes of the eight pixels of a mask's byte

using FourPixels [[gnu::vector_size(16)]] = std::int32_t;

// Blackens the transparent ones of eight pixels, those with an alpha below 128, and answers their bits of the
// mask. Four pixels at a time and without a branch, since a picture's transparency is hard to predict.
std::byte MaskEight(std::byte* pixels) {
  constexpr FourPixels bitOf[] = {{128, 64, 32, 16}, {8, 4, 2, 1}};
  FourPixels mask{};
  for (const FourPixels& bit : bitOf) {
    FourPixels four;
    std::memcpy(&four, pixels, sizeof four);
    const FourPixels opaque = four >> 31;  // the alpha's highest bit in each bit of its pixel
    four &= opaque | static_cast<std::int32_t>(0xFF000000);
    std::memcpy(pixels, &four, sizeof four);
    mask |= ~opaque & bit;
    pixels += sizeof four;
  }
  return static_cast<std::byte>(mask[0] | mask[1] | mask[2] | mask[3]);
}

// Masks the transparent pixels of one row. The mask's bits run from the most significant one of each byte.
void MaskRow(std::byte* pixels, std::byte* mask, std::size_t width) {
  std::size_t left = 4 * width;
  for (; left >= groupSize; left -= groupSize, pixels += groupSize) *mask++ = MaskEight(pixels);
  if (left == 0) return;
  std::byte group[groupSize];
  std::memset(group, 0xFF, groupSize);
  std::memcpy(group, pixels, left);
  *mask = MaskEight(group);
  std::memcpy(pixels, group, left);
}

}  // namespace

std::vector<std::byte> BitmapToIcon(std::span<const std::byte> bitmap, bool buildMask) {
  const Layout layout = CheckedLayout(bitmap);
  const auto copied = bitmap.subspan(fileHeaderSize, infoHeaderSize + layout.colorSize());
  std::vector<std::byte> icon;
  icon.reserve(copied.size() + layout.maskSize());
  icon.assign(copied.begin(), copied.end());
  icon.resize(copied.size() + layout.maskSize());
  if (buildMask) {
    std::byte* pixels = icon.data() + infoHeaderSize;
    std::byte* mask = pixels + layout.colorSize();
    for (std::size_t row = 0; row < layout.height; ++row) {
      MaskRow(pixels + row * layout.colorStride, mask + row * layout.maskStride, layout.width);
    }
  }
  const auto doubled = static_cast<std::uint32_t>(2 * layout.height);
  std::memcpy(icon.data() + heightInInfoHeader, &doubled, sizeof doubled);
  return icon;
}
