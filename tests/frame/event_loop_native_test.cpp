// The event loop where calls fail, where the device takes its time, and where a command looks at the queue.
#include <fstream>
#include <regex>

#include "support/fault_runs.h"
#include "support/keeping_device.h"
#include "support/own_process.h"
#include "support/tool_guest.h"

namespace {

using Census = std::map<std::string, std::size_t>;

// Ends a receive after having written to all its memory.
void End(const KeepingDevice::Request& receive) {
  std::uint64_t address;
  std::memcpy(&address, static_cast<std::byte*>(receive->buffer()) + 16, sizeof address);
  std::memset(reinterpret_cast<void*>(address), 0xFF, 512);
  receive->Complete(ERROR_OPERATION_ABORTED, 0);
}

class EventLoopCalls : public ToolGuest {
 protected:
  void TearDown() override {
    if (slow_) slow_->Forget();
    ToolGuest::TearDown();
  }

  static void RunLoop() { const LoopThread loop; }
  static void FailFirst(const char* function) { Failing(function, 1, RunLoop, 1234); }
  std::shared_ptr<KeepingDevice> MakeDeviceSlow() {
    slow_ = std::make_shared<KeepingDevice>();
    slow_->slow = true;
    platform::SetDevice("\\\\.\\tsr_tg", slow_);
    return slow_;
  }

 private:
  std::shared_ptr<KeepingDevice> slow_;
};

TEST_F(EventLoopCalls, ACancelledReceiveIsKeptUntilTheDeviceHasEndedIt) {
  const auto device = MakeDeviceSlow();
  bool ended = false, freedEarly = false;
  platform::ArmFaultPlan({.before = [&](const std::string& function) {
    if (function == "WaitForSingleObject" && !std::exchange(ended, true)) {
      EXPECT_EQ(device->cancelled, 1);
      End(device->Kept(0));
    }
    freedEarly |= function == "CoUninitialize" && !ended;
  }});
  RunLoop();
  platform::DisarmFaultPlan();
  EXPECT_TRUE(ended);
  EXPECT_FALSE(freedEarly);
}

// What cannot be cancelled or waited for is kept while the device holds it, and freed by a later loop.
TEST_F(EventLoopCalls, AReceiveThatTheDeviceHoldsIsFreedByALoopAfterItsEnd) {
  const auto device = MakeDeviceSlow();
  FailFirst("WaitForSingleObject");
  EXPECT_EQ(platform::Census(), (Census{{"event", 1}}));
  FailFirst("CancelIo");
  EXPECT_EQ(platform::Census(), (Census{{"event", 2}}));
  device->slow = false;
  for (const std::size_t ended : {0u, 1u}) {
    RunLoop();
    EXPECT_EQ(platform::Census().at("event"), 2 - ended);
    End(device->Kept(ended));
  }
  RunLoop();
  EXPECT_EQ(platform::Census(), Census{});
}

// In a process of its own, since the log stays open.
TEST_F(EventLoopCalls, AFailedWaitEndsTheLoopWithALineInTheLog) {
  InOwnProcess([&] {
    FailFirst("MsgWaitForMultipleObjectsEx");
    EXPECT_EQ(platform::Census(), (Census{{"file", 1}}));
    EXPECT_EQ(gate().Facts().cancelled, 1u);
    std::ifstream log(platform::GuestRoot() / "Windows" / "Logs" / "tessarine.log");
    const std::string text(std::istreambuf_iterator<char>(log), {});
    const std::regex line(
        R"(\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} W /Velomira:\d+:[0-9a-f]+/ \[VELO\] Wait failed! Error 1234\n)");
    EXPECT_TRUE(std::regex_match(text, line)) << text;
  });
}

TEST_F(EventLoopCalls, AStopThatACommandHasSeenAndLeftEndsTheLoop) {
  StartAndAwaitAnnouncement();
  std::promise<void> asked;
  Watch([&](std::span<const std::byte>) {  // on the worker's thread, within the command
    asked.set_value();
    MSG message;
    while (!PeekMessageW(&message, nullptr, 0, 0, PM_NOREMOVE)) std::this_thread::yield();
  });
  gate().Push(on);
  asked.get_future().wait();
  EXPECT_EQ(module->Stop(), 0);
}

}  // namespace
