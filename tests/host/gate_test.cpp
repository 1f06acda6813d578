// The gate of this build, seen from both ends: what the host asks for is what plain control calls of a guest
// meet. What the module's own requests meet is shown by its channel's tests.
#include "host/gate.h"

#include <functional>

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
  EXPECT_EQ(receive.Finish(), DWORD{ERROR_OPERATION_ABORTED});
  for (std::uint32_t code = 1; code <= 3; ++code) gate->Push(Envelope(code));
  for (std::uint32_t code = 1; code <= 3; ++code) {  // all, in their order
    EXPECT_EQ(receive.Submit(), 0u);
    EXPECT_TRUE(StartsWith(receive.memory, Envelope(code)));
    EXPECT_EQ(receive.returned, sizeof receive.packet);
  }
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
  const auto header = [](GateSend& send) { return reinterpret_cast<WMA_Command*>(send.memory.data()); };
  const struct {
    const char* what;
    std::function<void(GateSend& send, TgRequest& request, TgBuffer* buffers)> spoil;
  } cases[] = {
      {"request", [](auto&, auto& request, auto*) { request.request = 1; }},
      {"receive with two buffers", [](auto&, auto& request, auto*) { request.request = TgReceiveCommand; }},
      {"reserved", [](auto&, auto& request, auto*) { request.reserved = 1; }},
      {"buffer count", [](auto&, auto& request, auto*) { request.bufferCount = 1; }},
      {"buffer count past the request", [](auto&, auto& request, auto*) { request.bufferCount = 3; }},
      {"inline bytes past the request", [](auto&, auto& request, auto*) { request.inlineByteCount = 8; }},
      {"first flags", [](auto&, auto&, auto* buffers) { buffers[0].flags = deviceWrites; }},
      {"second flags", [](auto&, auto&, auto* buffers) { buffers[1].flags = 0; }},
      {"other memory", [](auto&, auto&, auto* buffers) { buffers[1].address += 4; }},
      {"other size", [](auto&, auto&, auto* buffers) { buffers[1].byteCount -= 4; }},
      {"less than an envelope",
       [](auto&, auto&, auto* buffers) { buffers[0].byteCount = buffers[1].byteCount = 19; }},
      {"no memory", [](auto&, auto&, auto* buffers) { buffers[0].address = buffers[1].address = 0; }},
      {"version", [&](auto& send, auto&, auto*) { header(send)->version = 2; }},
      {"result", [&](auto& send, auto&, auto*) { header(send)->result = 1; }},
      {"envelope reserved", [&](auto& send, auto&, auto*) { header(send)->reserved = 1; }},
      {"data past the buffer", [&](auto& send, auto&, auto*) { header(send)->dataSize = 45; }}};
  std::size_t expected = 0;
  for (const auto& c : cases) {
    GateSend send(device, sharingOn, 64);
    c.spoil(send, send.packet.header, send.packet.buffers);
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
