// Host bitmaps into icon images: what is refused and in which order, the layout, and the mask of old systems.
#include "launcher/bmp2ico.h"

#include <gtest/gtest.h>

#include <cstring>

#include "host/wire.h"
#include "support/gate_fixture.h"
#include "support/raised.h"

namespace {

using host::Bytes;

void Write(Bytes& bytes, std::size_t at, std::uint32_t value, std::size_t size) {
  std::memcpy(bytes.data() + at, &value, size);
}

std::string Refusal(const Bytes& bitmap) {
  return Raised([&] { BitmapToIcon(bitmap, false); });
}

// Every later fault is there as well, so the first one found tells the order of the checks.
TEST(BitmapConversion, ChecksTheHeaderInOrder) {
  const struct {
    std::size_t at, size;
    std::uint32_t bad;
    const char* message;
  } checks[] = {
      {0, 2, 0x4D43, "bmp2ico: Invalid bmp header"},
      {14, 4, 108, "bmp2ico: Invalid bmp info header size"},
      {46, 4, 1, "bmp2ico: Bitmap palettes not supported"},
      {50, 4, 1, "bmp2ico: Bitmap palettes not supported"},
      {30, 4, 3, "bmp2ico: Only uncompressed RGB bitmaps supported"},
      {28, 2, 24, "bmp2ico: Only 32bpp bitmaps supported"},
      {26, 2, 2, "bmp2ico: Only single-plane bitmaps supported"},
      {22, 4, 0xFFFFFFF0, "bmp2ico: Invalid bmp dimensions"},
  };
  for (std::size_t first = 0; first < std::size(checks); ++first) {
    Bytes bitmap = TestBitmap(16, 16);
    for (std::size_t i = first; i < std::size(checks); ++i) {
      Write(bitmap, checks[i].at, checks[i].bad, checks[i].size);
    }
    EXPECT_EQ(Refusal(bitmap), checks[first].message) << "offset " << checks[first].at;
  }
  EXPECT_EQ(Refusal(TestBitmap(16, 16)), "");
}

TEST(BitmapConversion, RefusesDimensionsThatCannotBe) {
  const struct {
    std::uint32_t width, height;
    const char* message;
  } cases[] = {
      {0, 16, "bmp2ico: Invalid bmp dimensions"},
      {16, 0, "bmp2ico: Invalid bmp dimensions"},
      {0xFFFFFFFF, 16, "bmp2ico: Invalid bmp dimensions"},
      {0x80000000, 0x80000000, "bmp2ico: Invalid bmp dimensions"},
      {0x7FFFFFFF, 0x7FFFFFFF, "bmp2ico: Invalid bmp dimensions"},  // 2^64 bytes and more
      {0x40000000, 1, "bmp2ico: Invalid bmp dimensions"},           // a row of 2^32 bytes
      {0x8000, 0x8000, "bmp2ico: Invalid bmp dimensions"},          // 2^32 bytes of pixels
      {0x4000, 0x8000, "bmp2ico: Bitmap data is truncated"},        // half of that fits
      {16, 17, "bmp2ico: Bitmap data is truncated"},
  };
  for (const auto& c : cases) {
    Bytes bitmap = TestBitmap(16, 16);
    Write(bitmap, 18, c.width, 4);
    Write(bitmap, 22, c.height, 4);
    EXPECT_EQ(Refusal(bitmap), c.message) << c.width << " x " << c.height;
  }
}

TEST(BitmapConversion, ReadsNothingBehindTheData) {
  const Bytes whole = TestBitmap(16, 16);
  for (const std::size_t size :
       {std::size_t{0}, std::size_t{1}, std::size_t{53}, std::size_t{54}, whole.size() - 1}) {
    const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
    EXPECT_EQ(Refusal(cut), "bmp2ico: Bitmap data is truncated") << size;
  }
  Bytes longer = whole;
  longer.resize(whole.size() + 5);
  EXPECT_EQ(BitmapToIcon(longer, false), BitmapToIcon(whole, false));
}

TEST(BitmapConversion, KeepsHeaderAndPixelsAndAddsAnEmptyMask) {
  const struct {
    int width, height;
    std::size_t pixels, mask;
  } cases[] = {
      {1, 1, 4, 4}, {32, 32, 4096, 128}, {33, 2, 264, 16}, {48, 48, 9216, 384}, {256, 256, 262144, 8192},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.width);
    const Bytes bitmap = TestBitmap(c.width, c.height);
    const Bytes icon = BitmapToIcon(bitmap, false);
    ASSERT_EQ(icon.size(), 40 + c.pixels + c.mask);
    Bytes expected(bitmap.begin() + 14, bitmap.end());
    Write(expected, 8, static_cast<std::uint32_t>(2 * c.height), 4);
    expected.resize(icon.size());
    EXPECT_EQ(icon, expected);
  }
}

TEST(BitmapConversion, MasksTransparentPixelsAndBlackensThem) {
  constexpr std::uint32_t opaque = 0xFF0A141E, least = 0x800A141E,
                          below = 0x7F0A141E;  // alpha, red, green, blue
  const struct {
    std::size_t pixel;  // over both rows of 48
    std::uint32_t value, becomes;
    std::size_t maskByte;
    unsigned maskBit;  // 0: not masked
  } cases[] = {
      {0, below, 0x7F000000, 0, 0x80},  {6, least, least, 0, 0},
      {7, below, 0x7F000000, 0, 0x01},  {8, 0, 0, 1, 0x80},
      {32, below, 0x7F000000, 4, 0x80}, {47, 0x00FFFFFF, 0, 5, 0x01},
      {48 + 31, 0, 0, 8 + 3, 0x01},     {48 + 40, below, 0x7F000000, 8 + 5, 0x80},
  };
  Bytes bitmap = TestBitmap(48, 2);
  for (std::size_t pixel = 0; pixel < 96; ++pixel) Write(bitmap, 54 + 4 * pixel, opaque, 4);
  Bytes expected(bitmap.begin() + 14, bitmap.end());
  Write(expected, 8, 4, 4);
  expected.resize(40 + 384 + 16);
  for (const auto& c : cases) {
    Write(bitmap, 54 + 4 * c.pixel, c.value, 4);
    Write(expected, 40 + 4 * c.pixel, c.becomes, 4);
    expected[40 + 384 + c.maskByte] |= std::byte{static_cast<unsigned char>(c.maskBit)};
  }
  EXPECT_EQ(BitmapToIcon(bitmap, true), expected);
}

}  // namespace
