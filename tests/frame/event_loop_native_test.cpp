// The event loop with a failing call. It runs in a process of its own, since a failed wait opens the log for
// good.
#include "frame/event_loop.h"

#include <platform/control.h>

#include <fstream>
#include <regex>
#include <thread>

#include "frame/worker_guest.h"
#include "support/fail_call.h"
#include "support/own_process.h"

namespace {

using Census = std::map<std::string, std::size_t>;

class EventLoopFailures : public WorkerGuest {
 protected:
  // The loop on a thread of its own, with a stop that lies in its queue already.
  static void RunLoopToItsStop() {
    std::thread([] {
      MSG message;
      PeekMessageW(&message, nullptr, stopMessage, stopMessage, PM_NOREMOVE);
      PostThreadMessageW(GetCurrentThreadId(), stopMessage, 0, 0);
      ToolWorker worker;
      worker.gate = OpenTg();
      RunEventLoop(worker);
    }).join();
  }

  static std::vector<std::string> LogLines() {
    std::ifstream log(platform::GuestRoot() / "Windows" / "Logs" / "tessarine.log");
    std::vector<std::string> lines;
    for (std::string line; std::getline(log, line);) lines.push_back(line);
    return lines;
  }
};

TEST_F(EventLoopFailures, EachFailingCallEndsTheLoopAndLeavesNothingButWhatTheDeviceHolds) {
  InOwnProcess([&] {
    platform::ArmFaultPlan({});
    RunLoopToItsStop();
    const std::vector<std::string> calls = platform::DisarmFaultPlan();
    EXPECT_EQ(std::ranges::count(calls, "CancelIo"), 1);
    Census expected;
    const auto first = std::ranges::find(calls, "CoInitialize");  // what comes before is the test's own
    for (auto call = first; call != calls.end(); ++call) {
      const std::string& failing = *call;
      const auto number = static_cast<std::size_t>(call - calls.begin() + 1);
      FailCall(number, 1234);
      RunLoopToItsStop();
      platform::DisarmFaultPlan();
      if (failing == "MsgWaitForMultipleObjectsEx") expected["file"] = 1;  // the log
      Census left = expected;
      if (failing == "CancelIo" || failing == "WaitForSingleObject") left["event"] = 1;
      EXPECT_EQ(platform::Census(), left) << number << ": " << failing;
      RunLoopToItsStop();  // which frees what the device has let go of since
      EXPECT_EQ(platform::Census(), expected) << number << ": " << failing;
    }
    EXPECT_EQ(expected, (Census{{"file", 1}}));
    ASSERT_EQ(LogLines().size(), 1u);
    const std::regex failedWait(
        R"(\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} W /Velomira:\d+:[0-9a-f]+/ \[VELO\] Wait failed! Error 1234)");
    EXPECT_TRUE(std::regex_match(LogLines()[0], failedWait)) << LogLines()[0];
    EXPECT_EQ(gate().Facts().opens, gate().Facts().closes);
    StartAndAwaitAnnouncement();
    EXPECT_TRUE(StopWorker());
  });
}

}  // namespace
