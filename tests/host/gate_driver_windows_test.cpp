// What only a real driver shows: guests in other processes, a guest that dies, a host that goes away.
#include <future>

#include "gate_guest.h"
#include "host/gate.h"
#include "support/child_process.h"

namespace {

using namespace std::chrono_literals;
using namespace gate_guest;

const std::vector<std::byte> announce = Envelope(CmdAnnounceRequest);

TEST(GateDriverTest, TheRequestsOfADeadGuestAreForgotten) {
  if (IsChild()) {
    GateReceive receive(OpenGate());
    GateSend send(OpenGate(), announce, 64);
    receive.Submit();
    send.Submit();
    ChildIsReady();
    for (;;) Sleep(INFINITE);
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
    ChildIsReady();
    for (;;) Sleep(INFINITE);
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
