// The event loop where calls fail, where the device takes its time, and where a command looks at the queue.
#include <platform/control.h>

#include <cstring>
#include <fstream>
#include <regex>

#include "support/fault_runs.h"
#include "support/own_process.h"
#include "support/tool_guest.h"

namespace {

using Census = std::map<std::string, std::size_t>;

// Keeps its receives until they are ended by hand, cancelled or not.
class SlowDevice : public platform::Device {
 public:
  using Request = std::shared_ptr<platform::IoRequest>;

  DWORD Open(DWORD, DWORD, bool) override { return 0; }
  void Close() override {}
  void Control(Request request) override {
    std::uint32_t code;
    std::memcpy(&code, request->buffer(), sizeof code);
    if (code != 0x9100) return request->Complete(0, request->size());
    kept.push_back(std::move(request));
  }
  void Cancel(const Request& request) override {
    ++cancelled;
    if (!slow) request->Complete(ERROR_OPERATION_ABORTED, 0);
  }
  // Ends a receive after having written to all its memory.
  static void End(const Request& request) {
    std::uint64_t address;
    std::memcpy(&address, static_cast<std::byte*>(request->buffer()) + 16, sizeof address);
    std::memset(reinterpret_cast<void*>(address), 0xFF, 512);
    request->Complete(ERROR_OPERATION_ABORTED, 0);
  }

  std::vector<Request> kept;
  int cancelled = 0;
  bool slow = true;
};

class EventLoopCalls : public ToolGuest {
 protected:
  void TearDown() override {
    if (slow_) slow_->kept.clear();  // a request keeps its device
    ToolGuest::TearDown();
  }

  static void RunLoop() { const LoopThread loop; }
  static void FailFirst(const char* function) { Failing(function, 1, RunLoop, 1234); }
  std::shared_ptr<SlowDevice> MakeDeviceSlow() {
    slow_ = std::make_shared<SlowDevice>();
    platform::SetDevice("\\\\.\\tsr_tg", slow_);
    return slow_;
  }

 private:
  std::shared_ptr<SlowDevice> slow_;
};

TEST_F(EventLoopCalls, ACancelledReceiveIsKeptUntilTheDeviceHasEndedIt) {
  const auto device = MakeDeviceSlow();
  bool ended = false, freedEarly = false;
  platform::ArmFaultPlan({.before = [&](const std::string& function) {
    if (function == "WaitForSingleObject" && !std::exchange(ended, true)) {
      EXPECT_EQ(device->cancelled, 1);
      SlowDevice::End(device->kept.at(0));
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
    SlowDevice::End(device->kept.at(ended));
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
