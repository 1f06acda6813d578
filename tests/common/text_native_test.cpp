// Conversions whose second step fails: the text is lost, the last error is not.
#include <gtest/gtest.h>
#include <platform/control.h>

#include "common/text.h"

TEST(TextCalls, AConversionThatFailsGivesTheEmptyTextAndKeepsTheLastError) {
  for (const std::size_t call : {1u, 2u}) {
    for (const char* function : {"MultiByteToWideChar", "WideCharToMultiByte"}) {
      platform::ArmFaultPlan(
          {.action = platform::FaultPlan::Action::Fail, .call = call, .function = function, .error = 5});
      SetLastError(77);
      const std::size_t lost = Utf8ToWide("text").empty() + 2 * WideToUtf8(TEXT("text")).empty();
      EXPECT_EQ(GetLastError(), 77u);
      EXPECT_EQ(lost, *function == 'M' ? 1u : 2u);
      platform::DisarmFaultPlan();
    }
  }
}
