// The worker's channel, and the device of the commands, against a host that answers, fails and stays silent
// as asked. Contexts are destroyed only after their request has ended, as their contract wants.
#include "channel/tg.h"

#include <chrono>

#include "channel/dtool.h"
#include "channel/tg_requests.h"

namespace {

using TgChannel = GateTest;

TEST_F(TgChannel, AReceiveIsInFlightUntilItIsPolledAfterItsEndOrACancellation) {
  const auto tg = OpenTg();
  Receive receive;
  EXPECT_TRUE(tg->Poll(*receive.context));  // never submitted
  EXPECT_FALSE(receive.IsSignalled());
  for (const bool on : {true, false}) {
    tg->Submit(*receive.context);
    EXPECT_FALSE(tg->Poll(*receive.context));
    EXPECT_FALSE(receive.IsSignalled());
    EXPECT_EQ(TgError([&] { tg->Submit(*receive.context); }), DWORD{ERROR_INVALID_PARAMETER});
    gate().Push(host::SharingCommand(on));
    receive.context->Wait();
    EXPECT_EQ(TgError([&] { tg->Submit(*receive.context); }), DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_TRUE(tg->Poll(*receive.context));
    EXPECT_TRUE(receive.IsSignalled());
    EXPECT_EQ(receive.status(), TgStatusSuccess);
    EXPECT_EQ(receive.byteCount(), 512u);
    const host::Bytes command = host::SharingCommand(on);
    EXPECT_TRUE(std::equal(command.begin(), command.end(), receive.memory.begin()));
  }
  EXPECT_EQ(gate().Facts().receives, 2u);
  tg->Cancel();  // nothing outstanding: nothing happens
  EXPECT_EQ(receive.status(), TgStatusSuccess);
  tg->Submit(*receive.context);
  tg->Cancel();
  receive.context->Wait();
  EXPECT_TRUE(tg->Poll(*receive.context));
  EXPECT_EQ(receive.status(), TgStatusCancelled);
  EXPECT_EQ(receive.byteCount(), 0u);
  EXPECT_EQ(gate().Facts().cancelled, 1u);
}

// What a request ends with, at once or after it was pending.
struct Outcome {
  std::uint32_t systemError = 0, deviceStatus = 0;  // as the device ends it
  DWORD raised = 0;
  std::uint32_t status = 0, byteCount = 0;
};
const Outcome outcomes[] = {
    {0, 5, 0, 5, 512},
    {0, TgStatusRequeue, 0, TgStatusRequeue, 512},
    {ERROR_OPERATION_ABORTED, 0, 0, TgStatusCancelled, 0},
    {ERROR_RETRY, 0, 0, TgStatusRetry, 0},
    {ERROR_GEN_FAILURE, 0, ERROR_GEN_FAILURE, 0, 512},
    {ERROR_NOT_READY, 0, ERROR_NOT_READY, 0, 512},
};

TEST_F(TgChannel, AReceiveEndsWithAStatusOrRaisesAtOnceOrWhenPolled) {
  const auto tg = OpenTg();
  for (const bool pends : {false, true}) {
    for (const Outcome& o : outcomes) {
      SCOPED_TRACE(::testing::Message() << "error " << o.systemError << (pends ? " after pending" : ""));
      Receive receive;
      gate().FailNext({.systemError = o.systemError, .status = o.deviceStatus, .pendFirst = pends});
      const DWORD submitted = TgError([&] { tg->Submit(*receive.context); });
      if (pends) receive.context->Wait();
      const DWORD polled = TgError([&] { EXPECT_TRUE(tg->Poll(*receive.context)); });
      EXPECT_EQ(submitted, pends ? 0 : o.raised);
      EXPECT_EQ(polled, pends ? o.raised : 0);
      EXPECT_EQ(receive.IsSignalled(), pends || o.raised == 0);
      EXPECT_TRUE(tg->Poll(*receive.context));  // idle again
      EXPECT_EQ(receive.status(), o.status);
      EXPECT_EQ(receive.byteCount(), o.byteCount);
    }
  }
}

TEST_F(TgChannel, AnExhaustedQuotaIsWaitedFor) {
  const auto tg = OpenTg();
  for (const std::uint32_t request : {TgReceiveCommand, TgReceiveCommand, TgSendCommand, TgSendCommand})
    gate().FailNext({.request = request, .systemError = ERROR_WORKING_SET_QUOTA});
  const auto start = std::chrono::steady_clock::now();
  Receive receive;
  tg->Submit(*receive.context);
  EXPECT_FALSE(tg->Poll(*receive.context));
  Send send;
  tg->Call(send.packet.header);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(199));
  EXPECT_EQ(gate().Facts().receives, 3u);
  EXPECT_EQ(gate().Facts().sends, 3u);
  EXPECT_EQ(send.packet.header.status, TgStatusSuccess);
  tg->Cancel();
  receive.context->Wait();
}

TEST_F(TgChannel, ACallUsesASecondHandleWhileAReceiveWaits) {
  auto tg = OpenTg();
  Receive receive;
  tg->Submit(*receive.context);
  gate().Serve([](std::span<const std::byte>) { return host::Reply{{std::byte{7}, std::byte{9}}, 6, 48}; });
  EXPECT_EQ(gate().Facts().opens, 1u);
  for (int i = 0; i < 2; ++i) {
    Send send;
    tg->Call(send.packet.header);
    EXPECT_EQ(send.packet.header.status, 6u);
    EXPECT_EQ(send.memory[0], std::byte{7});
    EXPECT_EQ(send.memory[1], std::byte{9});
    EXPECT_EQ(send.packet.buffers[1].byteCount, 64u);
    EXPECT_EQ(gate().Facts().opens, 2u);
  }
  EXPECT_FALSE(tg->Poll(*receive.context));
  tg->Cancel();
  receive.context->Wait();
  tg.reset();
  EXPECT_EQ(gate().Facts().closes, 2u);
}

// The device of the commands reports what the channel turns into a status, and tries nothing twice.
TEST_F(TgChannel, ACallEndsWithAStatusOrRaisesAndAnExchangeGivesItsCountAndItsStatus) {
  const auto tg = OpenTg();
  const auto fail = [&](const Outcome& o) {
    gate().FailNext({.request = TgSendCommand, .systemError = o.systemError, .status = o.deviceStatus});
  };
  const auto exchange = [&](const Outcome& o) {
    for (const bool asked : {true, false}) {
      Send send;
      ToolDevice device;
      std::uint32_t status = 0x1234;
      fail(o);
      EXPECT_EQ(device.Ioctl(TgSendCommand, send.memory.data(), 64, asked ? &status : nullptr),
                o.systemError == 0 ? 48u : 0u);
      EXPECT_EQ(status, !asked ? 0x1234u : o.systemError != 0 ? o.systemError : o.deviceStatus);
    }
  };
  for (const Outcome& o : outcomes) {
    Send send;
    fail(o);
    EXPECT_EQ(TgError([&] { tg->Call(send.packet.header); }), o.raised);
    EXPECT_EQ(send.packet.header.status, o.status);
    for (const TgBuffer& buffer : send.packet.buffers)
      EXPECT_EQ(buffer.byteCount, o.byteCount == 0 ? 0u : 64u);
    exchange(o);
  }
  exchange({.systemError = ERROR_WORKING_SET_QUOTA});
  EXPECT_EQ(gate().Facts().sends, 3 * std::size(outcomes) + 2);
}

TEST_F(TgChannel, ACallWithoutADeviceRaisesAndTheNextOneTriesAgain) {
  const auto tg = OpenTg();
  Send send;
  gate().SetPresent(false);
  EXPECT_EQ(OpenTg(), nullptr);
  EXPECT_EQ(TgError([&] { tg->Call(send.packet.header); }), DWORD{ERROR_FILE_NOT_FOUND});
  EXPECT_EQ(gate().Facts().sends, 0u);
  gate().SetPresent(true);
  EXPECT_EQ(TgError([&] { tg->Call(send.packet.header); }), 0u);
}

}  // namespace
