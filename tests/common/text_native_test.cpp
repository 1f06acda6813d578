// Conversions whose second step fails: the text is lost, the last error is not.
#include "common/text.h"
#include "support/fault_runs.h"

TEST(TextCalls, AConversionThatFailsGivesTheEmptyTextAndKeepsTheLastError) {
  for (const std::size_t call : {1u, 2u}) {
    for (const char* function : {"MultiByteToWideChar", "WideCharToMultiByte"}) {
      SetLastError(77);
      const std::size_t lost = Failing(
          function, call, [] { return Utf8ToWide("text").empty() + 2 * WideToUtf8(TEXT("text")).empty(); },
          5);
      EXPECT_EQ(GetLastError(), 77u);
      EXPECT_EQ(lost, *function == 'M' ? 1u : 2u);
    }
  }
}
