// The worker's channel against a host that answers, fails and stays silent as asked. Contexts are destroyed
// only after their request has ended, as their contract wants.
#include "channel/tg.h"

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cstring>

#include "support/gate_fixture.h"

namespace {

using std::chrono::milliseconds;

// The error that `work` raises as a TgException, 0 when it raises nothing.
template <class Work>
DWORD TgError(Work work) {
  try {
    work();
    return 0;
  } catch (const TgException& failure) {
    return failure.error;
  }
}

struct Receive {
  std::array<std::byte, 512> memory{};
  TgPacket<1> packet{{TgReceiveCommand, 0, 0, 1, 0}, {MakeTgBuffer(memory.data(), 512, deviceWrites)}};
  std::unique_ptr<TgContext> context = CreateTgContext(packet.header);

  bool IsSignalled() const { return WaitForSingleObject(context->Event(), 0) == WAIT_OBJECT_0; }
  std::uint32_t status() const { return packet.header.status; }
  std::uint32_t byteCount() const { return packet.buffers[0].byteCount; }
};

struct Send {
  std::array<std::byte, 64> memory{};
  TgPacket<2> packet{{TgSendCommand, 0, 0, 2, 0},
                     {MakeTgBuffer(memory.data(), 64, 0), MakeTgBuffer(memory.data(), 64, deviceWrites)}};

  Send() {
    const WMA_Command header{CmdSharingState, commandVersion, 0, 0, 1};
    std::memcpy(memory.data(), &header, sizeof header);
  }
};

class TgChannel : public GateTest {
 protected:
  void SetUp() override {
    GateTest::SetUp();
    tg = OpenTg();
    ASSERT_NE(tg, nullptr);
  }
  void TearDown() override {
    tg.reset();
    GateTest::TearDown();
  }

  std::unique_ptr<Tg> tg;
};

TEST_F(TgChannel, AReceiveIsInFlightUntilItIsPolledAfterItsEnd) {
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
    EXPECT_EQ(std::memcmp(receive.memory.data(), host::SharingCommand(on).data(), 21), 0);
  }
  EXPECT_EQ(gate().Facts().receives, 2u);
}

// What a receive ends with, at once or after it was pending. The last row of each error is what is left of
// it.
struct Outcome {
  std::uint32_t systemError, deviceStatus;  // as the device ends it
  DWORD raised;
  std::uint32_t status, byteCount;
};
const Outcome outcomes[] = {
    {0, 5, 0, 5, 512},
    {0, TgStatusRequeue, 0, TgStatusRequeue, 512},
    {ERROR_OPERATION_ABORTED, 0, 0, TgStatusCancelled, 0},
    {ERROR_RETRY, 0, 0, TgStatusRetry, 0},
    {ERROR_GEN_FAILURE, 0, ERROR_GEN_FAILURE, 0, 512},
    {ERROR_NOT_READY, 0, ERROR_NOT_READY, 0, 512},
};

TEST_F(TgChannel, AnImmediateEndSignalsTheEventUnlessItRaises) {
  for (const Outcome& o : outcomes) {
    Receive receive;
    gate().FailNext({.systemError = o.systemError, .status = o.deviceStatus});
    EXPECT_EQ(TgError([&] { tg->Submit(*receive.context); }), o.raised);
    EXPECT_EQ(receive.IsSignalled(), o.raised == 0) << o.systemError;
    EXPECT_TRUE(tg->Poll(*receive.context));
    EXPECT_EQ(receive.status(), o.status);
    EXPECT_EQ(receive.byteCount(), o.byteCount);
  }
}

TEST_F(TgChannel, APendingReceiveGetsItsOutcomeWhenPolled) {
  for (const Outcome& o : outcomes) {
    Receive receive;
    gate().FailNext({.systemError = o.systemError, .status = o.deviceStatus, .pendFirst = true});
    tg->Submit(*receive.context);
    receive.context->Wait();
    bool finished = false;
    EXPECT_EQ(TgError([&] { finished = tg->Poll(*receive.context); }), o.raised);
    EXPECT_EQ(finished, o.raised == 0) << o.systemError;
    EXPECT_TRUE(tg->Poll(*receive.context));  // idle again
    EXPECT_EQ(receive.status(), o.status);
    EXPECT_EQ(receive.byteCount(), o.byteCount);
  }
}

TEST_F(TgChannel, CancellingEndsTheReceive) {
  tg->Cancel();  // nothing outstanding: nothing happens
  Receive receive;
  tg->Submit(*receive.context);
  tg->Cancel();
  receive.context->Wait();
  EXPECT_TRUE(tg->Poll(*receive.context));
  EXPECT_EQ(receive.status(), TgStatusCancelled);
  EXPECT_EQ(receive.byteCount(), 0u);
  EXPECT_EQ(gate().Facts().cancelled, 1u);
}

TEST_F(TgChannel, AnExhaustedQuotaIsWaitedFor) {
  const auto exhaust = [&](std::uint32_t request) {
    for (int i = 0; i < 3; ++i) gate().FailNext({.request = request, .systemError = ERROR_WORKING_SET_QUOTA});
    return std::chrono::steady_clock::now();
  };
  const auto waited = [](auto since) {
    return std::chrono::steady_clock::now() - since >= milliseconds(149);
  };
  Receive receive;
  auto start = exhaust(TgReceiveCommand);
  tg->Submit(*receive.context);
  EXPECT_TRUE(waited(start));
  EXPECT_FALSE(tg->Poll(*receive.context));
  EXPECT_EQ(gate().Facts().receives, 4u);
  Send send;
  start = exhaust(TgSendCommand);
  tg->Call(send.packet.header);
  EXPECT_TRUE(waited(start));
  EXPECT_EQ(gate().Facts().sends, 4u);
  EXPECT_EQ(send.packet.header.status, TgStatusSuccess);
  tg->Cancel();
  receive.context->Wait();
}

TEST_F(TgChannel, ACallUsesASecondHandleWhileAReceiveWaits) {
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

TEST_F(TgChannel, ACallEndsWithAStatusOrRaises) {
  for (const Outcome& o : outcomes) {
    Send send;
    gate().FailNext({.request = TgSendCommand, .systemError = o.systemError, .status = o.deviceStatus});
    EXPECT_EQ(TgError([&] { tg->Call(send.packet.header); }), o.raised);
    EXPECT_EQ(send.packet.header.status, o.status);
    for (const TgBuffer& buffer : send.packet.buffers)
      EXPECT_EQ(buffer.byteCount, o.byteCount == 0 ? 0u : 64u);
  }
}

TEST_F(TgChannel, ACallWithoutADeviceRaisesAndTheNextOneTriesAgain) {
  Send send;
  gate().SetPresent(false);
  EXPECT_EQ(TgError([&] { tg->Call(send.packet.header); }), DWORD{ERROR_FILE_NOT_FOUND});
  EXPECT_EQ(gate().Facts().sends, 0u);
  gate().SetPresent(true);
  EXPECT_EQ(TgError([&] { tg->Call(send.packet.header); }), 0u);
}

}  // namespace
