// The gate that every call of the layer passes, the fault plan behind it, and the thread's last error.
// The plan is one process-wide record under a mutex; the planned error of a call is kept per thread.
#include <unistd.h>

#include <platform/control.h>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <utility>

#include "layer.h"

namespace platform {
namespace {

struct GateState {
  std::mutex mutex;
  bool armed = false;
  FaultPlan plan;
  std::string failing;  // the function that keeps failing, once a repeating plan has acted
  std::vector<std::string> calls;
  std::size_t counted = 0;  // of the calls that the plan counts
  std::size_t failed = 0;
  std::map<std::string, std::size_t> counts;
};

// Never destroyed: calls arrive until the very end of the process.
GateState& State() {
  static auto* state = new GateState;
  return *state;
}

thread_local DWORD lastError = 0;
thread_local DWORD plannedError = 0;

// Counts the call; true when the plan fails it, with `error` replaced by the plan's own if it has one.
bool Pass(const char* function, bool canFail, DWORD* error) {
  GateState& state = State();
  std::unique_lock lock(state.mutex);
  ++state.counts[function];
  if (state.armed && state.plan.before) {
    const auto before = state.plan.before;
    lock.unlock();
    before(function);
    lock.lock();
  }
  if (!state.armed) return false;
  state.calls.emplace_back(function);
  if (state.plan.function.empty() || state.plan.function == function) ++state.counted;
  const bool due =
      state.counted == state.plan.call && (state.plan.function.empty() || state.plan.function == function);
  if (due && state.plan.action == FaultPlan::Action::EndProcess) {
    auto ending = state.plan.ending;
    state.armed = false;
    lock.unlock();
    if (ending) ending();
    _exit(86);
  }
  if (state.plan.action != FaultPlan::Action::Fail || !canFail) return false;
  if (due && state.plan.repeat) state.failing = function;
  if (!due && state.failing != function) return false;
  ++state.failed;
  if (state.plan.error != 0) *error = state.plan.error;
  return true;
}

}  // namespace

bool CallFails(const char* function, DWORD plausibleError) {
  if (!Pass(function, true, &plausibleError)) return false;
  plannedError = plausibleError;
  lastError = plausibleError;
  return true;
}

void CallPasses(const char* function) {
  Pass(function, false, nullptr);
}

DWORD PlannedError() {
  return plannedError;
}

void Unsupported(const char* function, const char* what) {
  std::fprintf(stderr, "platform: %s: not supported: %s\n", function, what);
  std::abort();
}

void ArmFaultPlan(FaultPlan plan) {
  GateState& state = State();
  std::lock_guard lock(state.mutex);
  state.plan = std::move(plan);
  state.failing.clear();
  state.calls.clear();
  state.counted = state.failed = 0;
  state.armed = true;
}

std::vector<std::string> DisarmFaultPlan() {
  GateState& state = State();
  std::lock_guard lock(state.mutex);
  state.armed = false;
  state.failing.clear();
  return std::exchange(state.calls, {});
}

std::size_t CallsFailed() {
  GateState& state = State();
  std::lock_guard lock(state.mutex);
  return state.failed;
}

std::map<std::string, std::size_t> CallCounts() {
  GateState& state = State();
  std::lock_guard lock(state.mutex);
  return state.counts;
}

void ResetCallCounts() {
  GateState& state = State();
  std::lock_guard lock(state.mutex);
  state.counts.clear();
}

}  // namespace platform

DWORD WINAPI GetLastError() {
  return platform::lastError;
}

void WINAPI SetLastError(DWORD error) {
  platform::lastError = error;
}
