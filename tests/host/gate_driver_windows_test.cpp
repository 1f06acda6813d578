// What only a real driver shows: guests in other processes, a guest that dies, a host that goes away.
// The child process is this program again, told by an environment variable to play the guest and never to
// end.
#include <future>

#include "gate_guest.h"
#include "host/gate.h"

namespace {

using namespace std::chrono_literals;
using namespace gate_guest;

constexpr const WCHAR* childVariable = TEXT("GATE_TEST_CHILD");
constexpr const WCHAR* readyName = TEXT("gate-test-child-ready");
const std::vector<std::byte> announce = Envelope(CmdAnnounceRequest);

bool IsChild() {
  return GetEnvironmentVariableW(childVariable, nullptr, 0) != 0;
}

[[noreturn]] void StayReady() {
  SetEvent(OpenEventW(EVENT_MODIFY_STATE, FALSE, readyName));
  for (;;) Sleep(INFINITE);
}

// This test again in a process of its own, as soon as it has called StayReady.
class Child {
 public:
  Child() {
    const HANDLE ready = CreateEventW(nullptr, TRUE, FALSE, readyName);
    const ::testing::TestInfo* test = ::testing::UnitTest::GetInstance()->current_test_info();
    std::string filter = std::string("--gtest_filter=") + test->test_suite_name() + "." + test->name();
    WCHAR program[MAX_PATH];
    GetModuleFileNameW(nullptr, program, MAX_PATH);
    std::wstring commandLine = L"child " + std::wstring(filter.begin(), filter.end());
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    SetEnvironmentVariableW(childVariable, TEXT("1"));
    EXPECT_TRUE(CreateProcessW(program, commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                               &startup, &process_));
    SetEnvironmentVariableW(childVariable, nullptr);
    EXPECT_EQ(WaitForSingleObject(ready, 30000), WAIT_OBJECT_0);
    CloseHandle(ready);
  }
  ~Child() {
    CloseHandle(process_.hThread);
    CloseHandle(process_.hProcess);
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  void Kill() {
    EXPECT_TRUE(TerminateProcess(process_.hProcess, 0));
    EXPECT_EQ(WaitForSingleObject(process_.hProcess, 30000), WAIT_OBJECT_0);
  }

 private:
  PROCESS_INFORMATION process_{};
};

TEST(GateDriverTest, TheRequestsOfADeadGuestAreForgotten) {
  if (IsChild()) {
    GateReceive receive(OpenGate());
    GateSend send(OpenGate(), announce, 64);
    receive.Submit();
    send.Submit();
    StayReady();
  }
  const auto gate = host::CreateGate();
  std::promise<void> mayAnswer;
  gate->Serve([&](std::span<const std::byte>) {
    mayAnswer.get_future().wait();
    return host::Reply{};
  });
  Child guest;
  EXPECT_TRUE(gate->WaitIdle(0ms));
  guest.Kill();
  // Wine tells the driver of a handle's end a little after the process's.
  for (int i = 0; i < 1000 && gate->Facts().closes < 2; ++i) Sleep(10);
  mayAnswer.set_value();
  EXPECT_EQ(gate->Facts().closes, 2u);
  EXPECT_EQ(gate->Facts().cancelled, 1u);
  EXPECT_FALSE(gate->WaitIdle(0ms));

  const HANDLE device = OpenGate();
  GateReceive receive(device);
  gate->Push(announce);
  EXPECT_EQ(receive.Submit(), 0u);
  EXPECT_TRUE(StartsWith(receive.memory, announce));
  EXPECT_TRUE(gate->Facts().breaches.empty());
  CloseHandle(device);
}

TEST(GateDriverTest, AHostThatDiesFailsTheSendsThatWaitForItAndFreesTheGate) {
  if (IsChild()) {
    const auto gate = host::CreateGate();
    gate->Serve([](std::span<const std::byte>) -> host::Reply {
      for (;;) Sleep(INFINITE);
    });
    StayReady();
  }
  Child host;
  const HANDLE device = OpenGate();
  GateSend fetched(device, announce, 64), waiting(device, announce, 64);
  ASSERT_EQ(fetched.Submit(), DWORD{ERROR_IO_PENDING});
  ASSERT_EQ(waiting.Submit(), DWORD{ERROR_IO_PENDING});
  host.Kill();
  EXPECT_EQ(fetched.Finish(), DWORD{ERROR_DEVICE_NOT_CONNECTED});
  EXPECT_EQ(waiting.Finish(), DWORD{ERROR_DEVICE_NOT_CONNECTED});
  EXPECT_EQ(waiting.Submit(), DWORD{ERROR_NOT_READY});
  const auto gate = host::CreateGate();
  EXPECT_EQ(waiting.SubmitAndFinish(), 0u);
  CloseHandle(device);
}

}  // namespace
