// Conversion of texts, and the last error that it leaves alone whether it succeeds or fails.
#include "common/text.h"

#include <gtest/gtest.h>

TEST(Text, ConversionsKeepTheLastError) {
  const struct {
    std::string_view utf8;
    WideView wide;
  } cases[] = {{"", TEXT("")},  // a size of 0, which the platform refuses with an error of its own
               {"a", TEXT("a")},
               {"\xC3\xA9\xE6\xBC\xA2\xF0\x9F\x98\x80", TEXT("\u00E9\u6F22\U0001F600")},
               {{"a\0b", 3}, {TEXT("a\0b"), 3}}};
  for (const auto& c : cases) {
    SetLastError(77);
    EXPECT_EQ(Utf8ToWide(c.utf8), c.wide);
    EXPECT_EQ(GetLastError(), 77u) << c.utf8;
    EXPECT_EQ(WideToUtf8(c.wide), c.utf8);
    EXPECT_EQ(GetLastError(), 77u) << c.utf8;
  }
  EXPECT_EQ(Utf8ToWide("a\xFFz"), TEXT("a\uFFFDz"));
}

TEST(Text, LowersTheLettersOfAsciiAlone) {
  EXPECT_EQ(AsciiLower(TEXT("@AMZ[`amz{\u00C4")), TEXT("@amz[`amz{\u00C4"));
}
