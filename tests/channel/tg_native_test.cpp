// The channel when the system's own calls fail: each failure is raised with its error. Also inline bytes,
// which the module never sends and the gate driver's double refuses.
#include "channel/tg_requests.h"
#include "support/fault_runs.h"

namespace {

using TgCalls = GateTest;

TEST_F(TgCalls, AFailedCallOfTheSystemIsRaised) {
  const auto failing = [](const char* function, auto work) {
    return TgError([&] { Failing(function, 1, work, 1234); });
  };
  EXPECT_EQ(failing("CreateEventW", [] { Receive(); }), 1234u);
  Receive receive;
  TgContext& context = *receive.context;
  const auto tg = OpenTg();
  gate().Push(host::AnnounceCommand());
  EXPECT_EQ(failing("SetEvent", [&] { tg->Submit(context); }), 1234u);
  EXPECT_TRUE(tg->Poll(context));
  tg->Submit(context);
  EXPECT_EQ(failing("WaitForSingleObject", [&] { context.Wait(); }), 1234u);
  EXPECT_EQ(failing("CancelIo", [&] { tg->Cancel(); }), 1234u);
  EXPECT_FALSE(tg->Poll(context));
  tg->Cancel();
  context.Wait();
  EXPECT_EQ(failing("GetOverlappedResult", [&] { tg->Poll(context); }), 1234u);
  EXPECT_TRUE(tg->Poll(context));
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
