// The channel when the system's own calls fail: each failure is raised with its error, and nothing stays
// open.
#include <gtest/gtest.h>
#include <platform/control.h>

#include <array>

#include "channel/tg.h"
#include "support/fail_call.h"
#include "support/gate_test.h"

namespace {

class TgFailures : public GateTest {};

// Fails call number `call` of `work` and gives the error that comes out as a TgException.
template <class Work>
DWORD TgErrorWhenFailing(std::size_t call, const char* function, Work work) {
  FailCall(call, 1234);
  DWORD error = 0;
  try {
    work();
  } catch (const TgException& failure) {
    error = failure.error;
  }
  EXPECT_EQ(platform::DisarmFaultPlan().at(call - 1), function);
  return error;
}

TEST_F(TgFailures, AFailedCallOfTheSystemIsRaised) {
  std::array<std::byte, 512> memory{};
  TgPacket<1> packet{{TgReceiveCommand, 0, 0, 1, 0}, {MakeTgBuffer(memory.data(), 512, deviceWrites)}};
  EXPECT_EQ(TgErrorWhenFailing(1, "CreateEventW", [&] { CreateTgContext(packet.header); }), 1234u);

  const auto context = CreateTgContext(packet.header);
  const auto tg = OpenTg();
  gate().Push(host::AnnounceCommand());
  EXPECT_EQ(TgErrorWhenFailing(2, "SetEvent", [&] { tg->Submit(*context); }), 1234u);
  EXPECT_TRUE(tg->Poll(*context));

  tg->Submit(*context);
  EXPECT_EQ(TgErrorWhenFailing(1, "WaitForSingleObject", [&] { context->Wait(); }), 1234u);
  EXPECT_EQ(TgErrorWhenFailing(1, "CancelIo", [&] { tg->Cancel(); }), 1234u);
  EXPECT_FALSE(tg->Poll(*context));
  tg->Cancel();
  context->Wait();
  EXPECT_EQ(TgErrorWhenFailing(1, "GetOverlappedResult", [&] { tg->Poll(*context); }), 1234u);
  EXPECT_TRUE(tg->Poll(*context));
}

}  // namespace
