// Runs of a piece of work under a fault plan of the native layer. Calls are numbered from 1, as the plan has
// them.
#pragma once

#include <platform/control.h>

#include <algorithm>

// The names of the layer's calls that `work` makes, in order.
template <class Work>
std::vector<std::string> CallsOf(Work work) {
  platform::ArmFaultPlan({});
  work();
  return platform::DisarmFaultPlan();
}

// Runs `work` with its n-th call failing.
template <class Work>
void WithFault(std::size_t call, Work work) {
  platform::FaultPlan plan;
  plan.action = platform::FaultPlan::Action::Fail;
  plan.call = call;
  platform::ArmFaultPlan(plan);
  work();
  platform::DisarmFaultPlan();
}

// The number of the first call of `function` that `work` makes, which must make one.
template <class Work>
std::size_t FirstCall(const char* function, Work work) {
  const std::vector<std::string> calls = CallsOf(work);
  return static_cast<std::size_t>(std::find(calls.begin(), calls.end(), function) - calls.begin()) + 1;
}
