// Starts and stops in which a call of the system fails, and what the worker's rest costs.

#include <atomic>

#include "support/fault_runs.h"
#include "support/tool_guest.h"

namespace {

class WorkerCalls : public ToolGuest {
 protected:
  // Starts a worker that `fault` ends, and waits until its loop is over.
  void StartAndAwaitEnd(const host::Fault& fault) {
    const std::uint64_t receives = gate().Facts().receives;
    gate().FailNext(fault);
    EXPECT_EQ(module->Start(), 0);
    while (gate().Facts().receives == receives) std::this_thread::yield();
    // The receive is the last thing that the worker lets go.
    while (platform::Census().contains("event")) std::this_thread::yield();
  }
};

TEST_F(WorkerCalls, AStartThatFailsLeavesNothing) {
  for (const char* call :
       {"CreateEventW", "_beginthreadex", "CreateFileW", "SetEvent", "WaitForMultipleObjects"}) {
    EXPECT_EQ(Failing(call, 1, [&] { return module->Start(); }), 1) << call;
    EXPECT_TRUE(platform::Census().empty()) << call;
    EXPECT_EQ(module->Notify(5), 0);  // tries again
    EXPECT_EQ(module->Stop(), 0);
    EXPECT_TRUE(platform::Census().empty()) << call;
  }
}

// The worker is kept in its first call until the starter asks it to end, or has left it behind.
TEST_F(WorkerCalls, AStartWhoseWaitFailsEndsItsThreadBeforeItReturns) {
  std::atomic<bool> entered = false, askedToEnd = false, returned = false;
  const auto before = [&](const std::string& function) {
    if (function == "PostThreadMessageW") askedToEnd = true;
    if (function != "CreateFileW" || entered.exchange(true)) return;
    while (!askedToEnd && !returned) std::this_thread::yield();
  };
  platform::ArmFaultPlan({.action = platform::FaultPlan::Action::Fail,
                          .call = 1,
                          .function = "WaitForMultipleObjects",
                          .before = before});
  EXPECT_EQ(module->Start(), 1);
  returned = true;
  while (!entered) std::this_thread::yield();
  EXPECT_TRUE(askedToEnd);
  EXPECT_TRUE(platform::Census().empty());
  platform::DisarmFaultPlan();
}

// What is posted to the worker before its first look at its queue is there after it.
TEST_F(WorkerCalls, AStartTakesNoMessage) {
  bool posted = false, kept = false;
  MSG message;
  platform::ArmFaultPlan({.before = [&](const std::string& function) {
    if (function == "PeekMessageW" && !std::exchange(posted, true)) {
      PeekMessageW(&message, nullptr, 0, 0, PM_NOREMOVE);  // makes the queue
      PostThreadMessageW(GetCurrentThreadId(), 0x400, 0, 0);
    }
    if (function == "CreateFileW") kept = PeekMessageW(&message, nullptr, 0x400, 0x400, PM_NOREMOVE);
  }});
  EXPECT_EQ(module->Start(), 0);
  EXPECT_EQ(module->Stop(), 0);
  platform::DisarmFaultPlan();
  EXPECT_TRUE(kept);
}

// Errors that the protocol does not know, of a receive and of the announcement, end the loop; a failed wait
// leaves what it ended with to the next stop.
TEST_F(WorkerCalls, ALoopThatEndsByItselfLeavesTheWorkerPublishedUntilAStopThatCanWait) {
  const host::Fault faults[] = {{.systemError = ERROR_GEN_FAILURE},
                                {.systemError = ERROR_NOT_READY, .pendFirst = true},
                                {.request = host::sendCommand, .systemError = ERROR_GEN_FAILURE}};
  for (const host::Fault& fault : faults) {
    const auto stop = [&] { return &fault == faults ? module->Stop() : module->Notify(6); };
    const host::GateFacts before = gate().Facts();
    StartAndAwaitEnd(fault);
    const host::GateFacts ended = gate().Facts();
    EXPECT_EQ(Failing("WaitForSingleObject", 1, stop), 0);
    EXPECT_FALSE(platform::Census().contains("thread"));
    EXPECT_TRUE(platform::Census().contains("device"));
    EXPECT_EQ(module->Start(), 0);
    EXPECT_EQ(stop(), 0);
    EXPECT_TRUE(platform::Census().empty());
    const host::GateFacts facts = gate().Facts();
    EXPECT_EQ(facts.opens, ended.opens);
    EXPECT_EQ(ended.closes, before.closes);
    EXPECT_EQ(facts.receives - before.receives, 1u);
    EXPECT_EQ(facts.cancelled - before.cancelled, fault.request == host::sendCommand ? 1u : 0u);
  }
}

TEST_F(WorkerCalls, BetweenCommandsTheWorkerSleepsInOneWait) {
  platform::ResetCallCounts();
  StartAndAwaitAnnouncement();
  for (std::size_t waits = 1; waits <= 11; ++waits) {
    while (platform::CallCounts()["MsgWaitForMultipleObjectsEx"] < waits) std::this_thread::yield();
    if (waits <= 10) gate().Push(other);
  }
  const auto counts = platform::CallCounts();
  const std::map<std::string, std::size_t> expected{
      {"CoInitialize", 1},         {"CreateEventW", 2},  // the start's and the receive's
      {"CreateFileW", 2},          {"DeviceIoControl", 1 + 1 + 10},
      {"GetOverlappedResult", 10}, {"MsgWaitForMultipleObjectsEx", 11},
      {"PeekMessageW", 1}};
  for (const auto& [call, count] : expected) EXPECT_EQ(counts.at(call), count) << call;
  EXPECT_FALSE(counts.contains("Sleep"));
}

}  // namespace
