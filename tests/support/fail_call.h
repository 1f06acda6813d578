// The fault plan of most native tests: one call of the layer fails, by its number from now on.
#pragma once

#include <platform/control.h>

// `error` 0: the error that the call plausibly has. platform::DisarmFaultPlan ends it.
inline void FailCall(std::size_t number, DWORD error = 0) {
  platform::FaultPlan plan;
  plan.action = platform::FaultPlan::Action::Fail;
  plan.call = number;
  plan.error = error;
  platform::ArmFaultPlan(plan);
}
