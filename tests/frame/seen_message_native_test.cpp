// A stop message that a command has looked at and left in the queue: it still ends the loop.
#include <future>

#include "frame/worker_guest.h"

namespace {

using SeenMessage = WorkerGuest;

TEST_F(SeenMessage, AStopThatACommandHasSeenAndLeftEndsTheLoop) {
  StartAndAwaitAnnouncement();
  std::promise<void> asked;
  Watch([&](std::span<const std::byte>) {  // on the worker's thread, within the command
    asked.set_value();
    MSG message;
    while (!PeekMessageW(&message, nullptr, 0, 0, PM_NOREMOVE)) std::this_thread::yield();
  });
  gate().Push(host::SharingCommand(true));
  asked.get_future().wait();
  EXPECT_TRUE(StopWorker());
}

}  // namespace
