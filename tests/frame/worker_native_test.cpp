// Starts and stops in which a call of the system fails. Starter and worker race for the numbers of their
// calls, so a sweep repeats until each call that it is after has been the one that failed.
#include <platform/control.h>

#include <atomic>
#include <set>
#include <thread>

#include "frame/worker_guest.h"
#include "support/fail_call.h"

namespace {

class WorkerFailures : public WorkerGuest {
 protected:
  void AwaitEnd() {
    while (platform::Census().contains("com")) std::this_thread::yield();
  }
};

TEST_F(WorkerFailures, AStartThatFailsAnywhereLeavesNothing) {
  std::set<std::string> left{"CreateEventW", "_beginthreadex", "WaitForMultipleObjects", "CreateFileW",
                             "SetEvent"};
  for (std::size_t attempt = 0; attempt < 20000 && !left.empty(); ++attempt) {
    const std::size_t number = 1 + attempt % 6;
    FailCall(number);
    const bool started = StartWorker();
    const std::vector<std::string> calls = platform::DisarmFaultPlan();
    const std::string failed = calls.size() < number ? "" : calls[number - 1];
    // A second event is the loop's own, after the start.
    if (left.contains(failed) && (failed != "CreateEventW" || number == 1)) {
      EXPECT_FALSE(started) << failed;
      EXPECT_EQ(platform::Census().size(), 0u) << failed;
      left.erase(failed);
    }
    EXPECT_TRUE(StopWorker());
  }
  EXPECT_TRUE(left.empty()) << "never failed: " << *left.begin();
  TakeAsked();
  StartAndAwaitAnnouncement();
}

TEST_F(WorkerFailures, AFailedWaitForTheStopLeavesTheWorkerPublishedUntilTheNextStop) {
  gate().FailNext({.systemError = ERROR_GEN_FAILURE});
  EXPECT_TRUE(StartWorker());
  while (gate().Facts().receives == 0) std::this_thread::yield();
  AwaitEnd();  // the thread calls nothing more, so the next calls are the stop's
  FailCall(2);
  EXPECT_FALSE(StopWorker());
  EXPECT_EQ(platform::DisarmFaultPlan(),
            (std::vector<std::string>{"PostThreadMessageW", "WaitForSingleObject", "CloseHandle"}));
  EXPECT_FALSE(platform::Census().contains("thread"));
  EXPECT_EQ(gate().Facts().closes, 0u);
  const auto opens = gate().Facts().opens;
  EXPECT_TRUE(StartWorker());
  EXPECT_EQ(gate().Facts().opens, opens);
  platform::ArmFaultPlan({});
  EXPECT_TRUE(StopWorker());
  EXPECT_EQ(platform::DisarmFaultPlan(), std::vector<std::string>{"CloseHandle"});  // the device
  EXPECT_EQ(gate().Facts().closes, opens);
}

TEST_F(WorkerFailures, AStopWaitsForTheCommandThatRuns) {
  StartAndAwaitAnnouncement();
  const auto posts = [] { return platform::CallCounts()["PostThreadMessageW"]; };
  std::atomic<bool> over = false;
  const auto before = posts();
  Watch([&](std::span<const std::byte>) {
    while (posts() == before) std::this_thread::yield();
    EXPECT_FALSE(gate().WaitIdle(std::chrono::milliseconds(0)));  // no receive while a command runs
    over = true;
  });
  gate().Push(host::SharingCommand(true));
  while (gate().Facts().sends < 2) std::this_thread::yield();
  EXPECT_TRUE(StopWorker());
  EXPECT_TRUE(over);
  const host::GateFacts facts = gate().Facts();
  EXPECT_EQ(facts.receives, 2u);  // submitted once more after the command, and cancelled
  EXPECT_EQ(facts.cancelled, 1u);
}

TEST_F(WorkerFailures, AnErrorOfAPendingReceiveEndsTheWorkerWhichStaysPublished) {
  platform::ResetCallCounts();
  gate().FailNext({.systemError = ERROR_NOT_READY, .pendFirst = true});
  EXPECT_TRUE(StartWorker());
  while (!platform::CallCounts().contains("MsgWaitForMultipleObjectsEx")) std::this_thread::yield();
  AwaitEnd();
  EXPECT_TRUE(StartWorker());
  EXPECT_EQ(gate().Facts().opens, 2u);
  EXPECT_EQ(gate().Facts().closes, 0u);
  EXPECT_TRUE(StopWorker());
  EXPECT_EQ(gate().Facts().closes, 2u);
  EXPECT_EQ(gate().Facts().cancelled, 0u);
}

TEST_F(WorkerFailures, BetweenCommandsTheWorkerSleepsInOneWait) {
  platform::ResetCallCounts();
  StartAndAwaitAnnouncement();
  for (std::size_t waits = 1; waits <= 11; ++waits) {
    while (platform::CallCounts()["MsgWaitForMultipleObjectsEx"] < waits) std::this_thread::yield();
    if (waits <= 10) gate().Push(Command(7));
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
