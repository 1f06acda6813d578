// The conversion of bitmaps: refused for the first reason that there is, or converted pixel by pixel. An
// input is a byte that says whether the mask is built, and the bitmap.
#include "fuzz/fuzzing.h"
#include "launcher/bmp2ico.h"
#include "trials/replies.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  // A block of its own, whose end the sanitizer watches.
  const auto bytes = std::as_bytes(std::span(data, size)).subspan(1);
  const host::Bytes bitmap(bytes.begin(), bytes.end());
  const bool buildMask = data[0] % 2 != 0;
  host::Bytes expected;
  const std::string refusal = trials::ExpectIcon(bitmap, buildMask, expected);
  try {
    const auto icon = BitmapToIcon(bitmap, buildMask);
    fuzz::Check(refusal.empty(), "taken in spite of: " + refusal);
    fuzz::Check(icon == expected, "another icon than expected");
  } catch (const std::exception& failure) {
    fuzz::Check(!refusal.empty() && std::string(failure.what()).ends_with(": " + refusal),
                std::string(failure.what()) + " instead of \"" + refusal + "\"");
  }
  return 0;
}
