// The gate of this build, seen from both ends: what the host asks for is what plain control calls of a guest
// meet. A receive that is to pend first ends only after the guest has begun to wait for it.
#include "host/gate.h"

#include "gate_guest.h"

namespace {

using namespace std::chrono_literals;
using namespace gate_guest;

class HostGateTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_NE(device, INVALID_HANDLE_VALUE); }
  void TearDown() override { CloseHandle(device); }

  std::unique_ptr<host::Gate> gate = host::CreateGate();
  HANDLE device = OpenGate();
};

const std::vector<std::byte> announce = Envelope(CmdAnnounceRequest);
const std::vector<std::byte> sharingOn = Envelope(CmdSharingState, std::array{std::byte{1}});

TEST_F(HostGateTest, ACommandCompletesTheNextReceiveOrTheOneThatWaits) {
  GateReceive first(device), second(device);
  gate->Push(announce);
  EXPECT_EQ(first.Submit(), 0u);
  EXPECT_TRUE(StartsWith(first.memory, announce));
  EXPECT_EQ(first.returned, sizeof first.packet);

  second.packet.header.status = TgStatusRetry;  // left from an earlier end of the same request
  EXPECT_EQ(second.Submit(), DWORD{ERROR_IO_PENDING});
  gate->Push(sharingOn);
  EXPECT_EQ(second.Finish(), 0u);
  EXPECT_TRUE(StartsWith(second.memory, sharingOn));
  EXPECT_EQ(second.packet.header.status, TgStatusSuccess);
  EXPECT_EQ(gate->Facts().receives, 2u);
  EXPECT_TRUE(gate->Facts().breaches.empty());
}

TEST_F(HostGateTest, CancellingEndsAReceiveAndTheNextGetsAllCommandsInOrder) {
  GateReceive cancelled(device), next(device);
  ASSERT_EQ(cancelled.Submit(), DWORD{ERROR_IO_PENDING});
  EXPECT_TRUE(CancelIo(device));
  EXPECT_EQ(cancelled.Finish(), DWORD{ERROR_OPERATION_ABORTED});
  EXPECT_EQ(gate->Facts().cancelled, 1u);
  for (std::uint32_t code = 1; code <= 3; ++code) gate->Push(Envelope(code));
  for (std::uint32_t code = 1; code <= 3; ++code) {
    EXPECT_EQ(next.Submit(), 0u);
    EXPECT_TRUE(StartsWith(next.memory, Envelope(code)));
  }
  EXPECT_FALSE(StartsWith(cancelled.memory, Envelope(1)));
}

TEST_F(HostGateTest, IdleMeansAReceiveWaitsAndNothingIsLeftForIt) {
  EXPECT_FALSE(gate->WaitIdle(1ms));
  GateReceive receive(device);
  ASSERT_EQ(receive.Submit(), DWORD{ERROR_IO_PENDING});
  EXPECT_TRUE(gate->WaitIdle(10s));
  gate->FailNext({.request = host::sendCommand, .systemError = ERROR_RETRY});
  EXPECT_TRUE(gate->WaitIdle(10s));
  gate->FailNext({.systemError = ERROR_RETRY});
  EXPECT_FALSE(gate->WaitIdle(1ms));
  gate->Push(announce);
  EXPECT_EQ(receive.Finish(), 0u);
  EXPECT_EQ(receive.Submit(), DWORD{ERROR_RETRY});
  EXPECT_FALSE(gate->WaitIdle(1ms));
  ASSERT_EQ(receive.Submit(), DWORD{ERROR_IO_PENDING});
  EXPECT_TRUE(gate->WaitIdle(10s));
  EXPECT_TRUE(CancelIo(device));
  receive.Finish();
}

TEST_F(HostGateTest, TheReplyIsWrittenOverTheCommandAndNeverPastItsBuffer) {
  struct Case {
    std::size_t buffer, reply;
    std::uint32_t status, returned;
  };
  for (const Case& c :
       {Case{64, 20, 0, 48}, {64, 64, 5, 48}, {64, 65, 0, 1}, {277784, 277784, 0, 48}, {21, 0, 0, 0}}) {
    std::vector<std::byte> seen;
    gate->Serve([&](std::span<const std::byte> envelope) {
      seen.assign(envelope.begin(), envelope.end());
      return host::Reply{std::vector(c.reply, std::byte{0xAB}), c.status, c.returned};
    });
    GateSend send(device, sharingOn, c.buffer + 8);  // the last 8 bytes are not the request's
    for (TgBuffer& buffer : send.packet.buffers) buffer.byteCount -= 8;
    EXPECT_EQ(send.SubmitAndFinish(), 0u);
    EXPECT_EQ(seen, sharingOn);
    EXPECT_EQ(send.returned, c.returned);
    EXPECT_EQ(send.packet.header.status, c.status);
    const std::size_t written = std::min(c.reply, c.buffer);
    EXPECT_TRUE(StartsWith(send.memory, std::vector(written, std::byte{0xAB})));
    if (written >= sharingOn.size()) {
      EXPECT_EQ(send.memory[written], std::byte{0});
    }
  }
}

TEST_F(HostGateTest, EachBreachOfTheContractIsRecorded) {
  struct Case {
    const char* what;
    void (*spoil)(GateSend& send);
  };
  static const auto headerOf = [](GateSend& send) {
    return reinterpret_cast<WMA_Command*>(send.memory.data());
  };
  const Case cases[] = {
      {"request", [](GateSend& send) { send.packet.header.request = 1; }},
      {"receive with two buffers", [](GateSend& send) { send.packet.header.request = TgReceiveCommand; }},
      {"reserved", [](GateSend& send) { send.packet.header.reserved = 1; }},
      {"buffer count", [](GateSend& send) { send.packet.header.bufferCount = 1; }},
      {"buffer count past the request", [](GateSend& send) { send.packet.header.bufferCount = 3; }},
      {"inline bytes past the request", [](GateSend& send) { send.packet.header.inlineByteCount = 8; }},
      {"first flags", [](GateSend& send) { send.packet.buffers[0].flags = deviceWrites; }},
      {"second flags", [](GateSend& send) { send.packet.buffers[1].flags = 0; }},
      {"other memory", [](GateSend& send) { send.packet.buffers[1].address += 4; }},
      {"other size", [](GateSend& send) { send.packet.buffers[1].byteCount -= 4; }},
      {"less than an envelope",
       [](GateSend& send) { send.packet.buffers[0].byteCount = send.packet.buffers[1].byteCount = 19; }},
      {"no memory",
       [](GateSend& send) { send.packet.buffers[0].address = send.packet.buffers[1].address = 0; }},
      {"version", [](GateSend& send) { headerOf(send)->version = 2; }},
      {"result", [](GateSend& send) { headerOf(send)->result = 1; }},
      {"envelope reserved", [](GateSend& send) { headerOf(send)->reserved = 1; }},
      {"data past the buffer", [](GateSend& send) { headerOf(send)->dataSize = 45; }},
  };
  std::size_t expected = 0;
  for (const Case& c : cases) {
    GateSend send(device, sharingOn, 64);
    c.spoil(send);
    send.SubmitAndFinish();
    EXPECT_EQ(gate->Facts().breaches.size(), ++expected) << c.what;
  }
  for (const std::uint32_t size : {511u, 513u}) {
    GateReceive receive(device);
    receive.packet.buffers[0].byteCount = size;
    EXPECT_EQ(receive.Submit(), DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_EQ(gate->Facts().breaches.size(), ++expected) << size;
  }
  GateSend unknown(device, sharingOn, 64);
  EXPECT_NE(unknown.Submit(IOCTL_TG_REQUEST + 4), 0u);
  EXPECT_EQ(gate->Facts().breaches.size(), ++expected);
  GateSend longer(device, sharingOn, 64);
  EXPECT_NE(longer.Submit(IOCTL_TG_REQUEST, 40), 0u);
  EXPECT_EQ(gate->Facts().breaches.size(), ++expected);
  const HANDLE unshared = CreateFileW(TEXT("\\\\.\\tsr_tg"), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ,
                                      nullptr, OPEN_EXISTING, 0, nullptr);
  EXPECT_EQ(gate->Facts().breaches.size(), ++expected);
  CloseHandle(unshared);
}

}  // namespace
