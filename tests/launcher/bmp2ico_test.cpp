// Host bitmaps into icon images: what is refused and in which order, the layout, and the mask of old systems.
#include "launcher/bmp2ico.h"

#include <cstring>

#include "support/gate_fixture.h"
#include "support/raised.h"

namespace {

using host::Bytes;

void Put(Bytes& bytes, std::size_t at, std::uint32_t value) {
  std::memcpy(bytes.data() + at, &value, sizeof value);
}

std::string Refusal(const Bytes& bitmap) {
  return Raised([&] { BitmapToIcon(bitmap, false); });
}

// Every later fault is there as well, so the first one found tells the order of the checks.
TEST(BitmapConversion, ChecksTheHeaderInOrder) {
  const struct {
    std::size_t at;
    std::uint32_t bad;
    const char* message;
  } checks[] = {{0, 0x4D43, "bmp2ico: Invalid bmp header"},
                {14, 108, "bmp2ico: Invalid bmp info header size"},
                {46, 1, "bmp2ico: Bitmap palettes not supported"},
                {50, 1, "bmp2ico: Bitmap palettes not supported"},
                {30, 3, "bmp2ico: Only uncompressed RGB bitmaps supported"},
                {28, 24, "bmp2ico: Only 32bpp bitmaps supported"},
                {26, 2 | 32 << 16, "bmp2ico: Only single-plane bitmaps supported"},
                {22, 0xFFFFFFF0, "bmp2ico: Invalid bmp dimensions"}};
  Bytes bitmap = TestBitmap(16, 16);
  for (std::size_t i = std::size(checks); i-- > 0;) {
    Put(bitmap, checks[i].at, checks[i].bad);
    EXPECT_EQ(Refusal(bitmap), checks[i].message) << "offset " << checks[i].at;
  }
}

TEST(BitmapConversion, TakesOnlyWhatTheDataHold) {
  const std::string dimensions = "bmp2ico: Invalid bmp dimensions", cut = "bmp2ico: Bitmap data is truncated";
  const struct {
    std::uint32_t width, height;
    std::size_t size;
    std::string raised;
  } cases[] = {
      {16, 16, 1078, ""},
      {16, 16, 1083, ""},  // what follows does not matter
      {16, 16, 1077, cut},
      {16, 16, 54, cut},
      {16, 16, 53, cut},
      {0, 16, 1078, dimensions},
      {16, 0, 1078, dimensions},
      {0xFFFFFFFF, 16, 1078, dimensions},
      {0x7FFFFFE0, 0x7C1F07E1, 1078, dimensions},  // a little more than 2^64 bytes
      {0x40000000, 1, 1078, dimensions},           // a row of 2^32 bytes
      {1, 0x1FFFFFFA, 1078, cut},                  // an image of 2^32 - 8 bytes
      {1, 0x1FFFFFFB, 1078, dimensions},           // of 2^32
  };
  for (const auto& c : cases) {
    Bytes whole = TestBitmap(16, 16);
    Put(whole, 18, c.width);
    Put(whole, 22, c.height);
    whole.resize(c.size);
    const Bytes bitmap = whole;  // as large as its data, so that reading behind them shows
    EXPECT_EQ(Refusal(bitmap), c.raised) << c.width << " x " << c.height << ", " << c.size;
  }
}

TEST(BitmapConversion, KeepsHeaderAndPixelsAndAddsAnEmptyMask) {
  const struct {
    int width, height;
    std::size_t pixels, mask;
  } cases[] = {{1, 1, 4, 4}, {32, 2, 256, 8}, {33, 2, 264, 16}, {256, 256, 262144, 8192}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.width);
    const Bytes bitmap = TestBitmap(c.width, c.height);
    Bytes expected(bitmap.begin() + 14, bitmap.end());
    Put(expected, 8, static_cast<std::uint32_t>(2 * c.height));
    expected.resize(40 + c.pixels + c.mask);
    EXPECT_EQ(BitmapToIcon(bitmap, false), expected);
  }
}

TEST(BitmapConversion, MasksTransparentPixelsAndBlackensThem) {
  const std::uint32_t opaque = 0xFF0A141F, least = 0x800A141F, below = 0x7F0A141F;  // alpha, red, green, blue
  const struct {
    std::size_t pixel;  // over both rows of 45
    std::uint32_t value, becomes;
    std::size_t maskByte;
    unsigned maskBit;  // 0: not masked
  } cases[] = {{0, below, 0x7F000000, 0, 0x80},
               {6, least, least, 0, 0},
               {7, below, 0x7F000000, 0, 0x01},
               {8, 0, 0, 1, 0x80},
               {10, 0, 0, 1, 0x20},
               {13, 0, 0, 1, 0x04},
               {14, 0, 0, 1, 0x02},
               {17, 0, 0, 2, 0x40},
               {19, 0, 0, 2, 0x10},
               {32, below, 0x7F000000, 4, 0x80},
               {44, 0x00FFFFFF, 0, 5, 0x08},
               {45 + 31, 0, 0, 8 + 3, 0x01},
               {45 + 40, below, 0x7F000000, 8 + 5, 0x80}};
  Bytes bitmap = TestBitmap(45, 2);
  for (std::size_t pixel = 0; pixel < 90; ++pixel) Put(bitmap, 54 + 4 * pixel, opaque);
  Bytes expected(bitmap.begin() + 14, bitmap.end());
  Put(expected, 8, 4);
  expected.resize(40 + 360 + 16);
  for (const auto& c : cases) {
    Put(bitmap, 54 + 4 * c.pixel, c.value);
    Put(expected, 40 + 4 * c.pixel, c.becomes);
    expected[40 + 360 + c.maskByte] |= static_cast<std::byte>(c.maskBit);
  }
  EXPECT_EQ(BitmapToIcon(bitmap, true), expected);
}

}  // namespace
