// What only a real driver shows: a host that goes away. Guests that die are shown with the module in them.
#include "gate_guest.h"
#include "host/gate.h"
#include "support/child_process.h"

namespace {

using namespace gate_guest;

const std::vector<std::byte> announce = Envelope(CmdAnnounceRequest);

TEST(GateDriverTest, AHostThatDiesFailsTheSendsThatWaitForItAndFreesTheGate) {
  if (IsChild()) {
    const auto gate = host::CreateGate();
    gate->Serve([](std::span<const std::byte>) -> host::Reply {
      for (;;) Sleep(INFINITE);
    });
    AwaitEnd();
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
