// Conversion of a host bitmap (a whole BMP file image) into the image that an icon resource holds.
#pragma once

#include <cstddef>
#include <span>
#include <vector>

// The icon image: the bitmap's 40-byte header with the height doubled, its pixel rows as stored, and a
// one-bit mask. With `buildMask`, for systems without alpha in icons, pixels with an alpha below 128 are
// masked and made black; without, the mask is zero and the pixels stay. Takes uncompressed bottom-up 32-bit
// bitmaps without a palette only; raises xdt::exc_tag for every other, and reads nothing behind `bitmap`.
std::vector<std::byte> BitmapToIcon(std::span<const std::byte> bitmap, bool buildMask);
