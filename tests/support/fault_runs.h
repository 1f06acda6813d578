// A piece of work under a fault plan of the native layer.
#pragma once

#include <gtest/gtest.h>
#include <platform/control.h>

// What `work` returns while the n-th call of the function (of any, when it is empty) fails, which must come;
// with `error`, or else the one that the function plausibly has.
template <class Work>
auto Failing(const char* function, std::size_t n, Work work, DWORD error = 0) {
  struct Disarming {
    const char* function;
    ~Disarming() {
      platform::DisarmFaultPlan();
      EXPECT_EQ(platform::CallsFailed(), 1u) << function;
    }
  };
  platform::ArmFaultPlan(
      {.action = platform::FaultPlan::Action::Fail, .call = n, .function = function, .error = error});
  const Disarming disarming{function};
  return work();
}
