// Start and stop of the one worker, and the exports over them. The exports are those of the module's own
// library, whose worker is not the one that is linked into this program.
#include "frame/worker.h"

#include "frame/worker_guest.h"
#include "host/system.h"

namespace {

class Worker : public WorkerGuest {};

TEST_F(Worker, ASecondStartAndASecondStopDoNothing) {
  EXPECT_TRUE(StopWorker());
  for (std::uint64_t run = 1; run <= 3; ++run) {
    StartAndAwaitAnnouncement();
    EXPECT_TRUE(StartWorker());
    Run(Command(7));
    EXPECT_TRUE(StopWorker());
    EXPECT_TRUE(StopWorker());
    const host::GateFacts facts = gate().Facts();
    EXPECT_EQ(facts.opens, 2 * run);  // both handles of one worker
    EXPECT_EQ(facts.receives, 2 * run);
    EXPECT_EQ(facts.cancelled, run);
    EXPECT_EQ(facts.closes, facts.opens);
    EXPECT_EQ(TakeAsked(), std::vector{CmdSharingState});
  }
}

// The worker may not have come to its loop yet: the stop is not lost, and one receive is submitted all the
// same.
TEST_F(Worker, AStopRightAfterTheStartIsNotLost) {
  for (std::uint64_t run = 1; run <= 50; ++run) {
    EXPECT_TRUE(StartWorker());
    EXPECT_TRUE(StopWorker());
    EXPECT_EQ(gate().Facts().receives, run);
    EXPECT_EQ(gate().Facts().cancelled, run);
  }
}

TEST_F(Worker, TheExportsStartAndStopAndReportOnlyAFailedStart) {
  const auto module = host::LoadModule(host::DefaultModule());
  const auto running = [&] { return gate().Facts().opens != gate().Facts().closes; };
  for (const std::uint32_t code : {0u, 1u, 4u, 6u, 7u, 0x80000005u}) {
    EXPECT_EQ(module->Notify(code), 0);
    EXPECT_EQ(gate().Facts().opens, 0u) << code;
  }
  EXPECT_EQ(module->Stop(), 0);
  gate().SetPresent(false);
  EXPECT_EQ(module->Start(), 1);
  EXPECT_EQ(module->Notify(5), 0);
  gate().SetPresent(true);
  EXPECT_FALSE(running());

  EXPECT_EQ(module->Start(), 0);
  EXPECT_TRUE(running());
  EXPECT_EQ(module->Start(), 0);
  for (const std::uint32_t code : {5u, 0u, 4u, 7u}) EXPECT_EQ(module->Notify(code), 0);
  EXPECT_TRUE(running());
  EXPECT_EQ(module->Notify(6), 0);
  EXPECT_FALSE(running());
  EXPECT_EQ(module->Notify(5), 0);
  EXPECT_TRUE(running());
  EXPECT_EQ(module->Stop(), 0);
  EXPECT_FALSE(running());
  EXPECT_EQ(gate().Facts().cancelled, 2u);
}

}  // namespace
