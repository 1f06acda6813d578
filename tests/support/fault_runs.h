// A piece of work under a fault plan of the native layer.
#pragma once

#include <gtest/gtest.h>
#include <platform/control.h>

// What `work` returns while the n-th call of the function, which must come, fails.
template <class Work>
auto Failing(const char* function, std::size_t n, Work work) {
  platform::ArmFaultPlan({.action = platform::FaultPlan::Action::Fail, .call = n, .function = function});
  auto result = work();
  platform::DisarmFaultPlan();
  EXPECT_EQ(platform::CallsFailed(), 1u) << function;
  return result;
}
