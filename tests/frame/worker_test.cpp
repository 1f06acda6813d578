// Start and stop of the one worker by the module's exports.
#include "support/tool_guest.h"

namespace {

using Worker = ToolGuest;

TEST_F(Worker, TheExportsStartAndStopOneWorkerAndReportOnlyAFailedStart) {
  for (const std::uint32_t code : {0u, 1u, 4u, 6u, 7u, 0x80000005u}) {
    EXPECT_EQ(module->Notify(code), 0);
    EXPECT_EQ(gate().Facts().opens, 0u) << code;
  }
  EXPECT_EQ(module->Stop(), 0);
  gate().SetPresent(false);
  EXPECT_EQ(module->Start(), 1);
  EXPECT_EQ(module->Notify(5), 0);
  gate().SetPresent(true);
  EXPECT_EQ(gate().Facts().opens, 0u);

  for (std::uint64_t run = 1; run <= 2; ++run) {
    EXPECT_EQ(run == 1 ? module->Start() : module->Notify(5), 0);
    Await(announcement);
    EXPECT_EQ(module->Start(), 0);
    for (const std::uint32_t code : {5u, 0u, 4u, 7u, 0x106u}) EXPECT_EQ(module->Notify(code), 0);
    Run(other);
    EXPECT_EQ(OpenHandles(), 2u);
    EXPECT_EQ(run == 1 ? module->Notify(6) : module->Stop(), 0);
    EXPECT_EQ(OpenHandles(), 0u);
    EXPECT_EQ(gate().Facts().opens, 2 * run);
    EXPECT_EQ(gate().Facts().cancelled, run);
    EXPECT_EQ(TakeAsked(), Codes{announcement});
  }
}

// The worker may not have come to its loop yet: the stop is not lost, and one receive is submitted all the
// same.
TEST_F(Worker, AStopRightAfterTheStartIsNotLost) {
  for (std::uint64_t run = 1; run <= 50; ++run) {
    EXPECT_EQ(module->Start(), 0);
    EXPECT_EQ(module->Stop(), 0);
    EXPECT_EQ(gate().Facts().receives, run);
    EXPECT_EQ(gate().Facts().cancelled, run);
  }
}

TEST_F(Worker, AStopWaitsForTheCommandThatRuns) {
  StartAndAwaitAnnouncement();
  std::promise<void> asked, answer;
  Watch([&](std::span<const std::byte>) {
    asked.set_value();
    answer.get_future().wait();
  });
  gate().Push(on);
  asked.get_future().wait();
  auto stop = std::async(std::launch::async, [&] { return module->Stop(); });
  EXPECT_EQ(stop.wait_for(std::chrono::milliseconds(100)), std::future_status::timeout);
  EXPECT_FALSE(gate().WaitIdle(std::chrono::milliseconds(0)));  // no receive while a command runs
  answer.set_value();
  EXPECT_EQ(stop.get(), 0);
  EXPECT_EQ(gate().Facts().receives, 2u);  // submitted once more after the command, and cancelled
  EXPECT_EQ(gate().Facts().cancelled, 1u);
  EXPECT_EQ(OpenHandles(), 0u);
}

}  // namespace
