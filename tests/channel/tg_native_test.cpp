// The channel when the system's own calls fail: each failure is raised with its error. Also inline bytes,
// which the module never sends and the gate driver's double refuses.
#include <array>

#include "channel/tg.h"
#include "support/fault_runs.h"
#include "support/gate_fixture.h"

namespace {

using TgCalls = GateTest;

// The error that comes out as a TgException when the first call of `function` in `work` fails with 1234.
template <class Work>
DWORD TgErrorWhenFailing(const char* function, Work work) {
  try {
    Failing(function, 1, work, 1234);
    return 0;
  } catch (const TgException& failure) {
    return failure.error;
  }
}

TEST_F(TgCalls, AFailedCallOfTheSystemIsRaised) {
  std::array<std::byte, 512> memory{};
  TgPacket<1> packet{{TgReceiveCommand, 0, 0, 1, 0}, {MakeTgBuffer(memory.data(), 512, deviceWrites)}};
  EXPECT_EQ(TgErrorWhenFailing("CreateEventW", [&] { CreateTgContext(packet.header); }), 1234u);
  const auto context = CreateTgContext(packet.header);
  const auto tg = OpenTg();
  gate().Push(host::AnnounceCommand());
  EXPECT_EQ(TgErrorWhenFailing("SetEvent", [&] { tg->Submit(*context); }), 1234u);
  EXPECT_TRUE(tg->Poll(*context));
  tg->Submit(*context);
  EXPECT_EQ(TgErrorWhenFailing("WaitForSingleObject", [&] { context->Wait(); }), 1234u);
  EXPECT_EQ(TgErrorWhenFailing("CancelIo", [&] { tg->Cancel(); }), 1234u);
  EXPECT_FALSE(tg->Poll(*context));
  tg->Cancel();
  context->Wait();
  EXPECT_EQ(TgErrorWhenFailing("GetOverlappedResult", [&] { tg->Poll(*context); }), 1234u);
  EXPECT_TRUE(tg->Poll(*context));
}

TEST_F(TgCalls, BuffersLieBehindInlineBytesPaddedToEight) {
  const auto tg = OpenTg();
  for (const std::uint16_t inlineBytes : {std::uint16_t{1}, std::uint16_t{8}}) {
    std::array<std::byte, 512> memory{};
    struct {
      TgRequest header;
      std::array<std::byte, 8> inlined;
      TgBuffer buffer;
    } packet{{TgReceiveCommand, 0, inlineBytes, 1, 0}, {}, MakeTgBuffer(memory.data(), 512, deviceWrites)};
    packet.inlined.fill(std::byte{0xAB});
    const auto context = CreateTgContext(packet.header);
    gate().FailNext({.systemError = ERROR_RETRY});
    tg->Submit(*context);  // a wrong size is a breach that fails the test
    EXPECT_EQ(packet.header.status, TgStatusRetry);
    EXPECT_EQ(packet.buffer.byteCount, 0u);
    EXPECT_EQ(packet.buffer.flags, deviceWrites);
    for (const std::byte byte : packet.inlined) EXPECT_EQ(byte, std::byte{0xAB});
  }
}

}  // namespace
