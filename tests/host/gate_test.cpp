// The gate of this build, seen from both ends: what the host asks for is what a guest's requests meet. What
// the module's own requests meet is shown by its channel's tests.
#include "host/driver/gate.h"

#include "channel/dtool.h"
#include "channel/tg_requests.h"

namespace {

using namespace std::chrono_literals;

class HostGateTest : public ::testing::Test {
 protected:
  std::unique_ptr<host::Gate> gate = host::CreateGate();
};

TEST_F(HostGateTest, IdleMeansAReceiveWaitsAndNothingIsLeftForIt) {
  EXPECT_FALSE(gate->WaitIdle(1ms));
  Receive receive;
  const auto tg = OpenTg();
  tg->Submit(*receive.context);
  EXPECT_TRUE(gate->WaitIdle(10s));
  gate->FailNext({.request = host::sendCommand, .systemError = ERROR_RETRY});
  EXPECT_TRUE(gate->WaitIdle(10s));
  gate->FailNext({.systemError = ERROR_RETRY});
  EXPECT_FALSE(gate->WaitIdle(1ms));
  gate->Push(host::AnnounceCommand());
  receive.context->Wait();
  EXPECT_TRUE(tg->Poll(*receive.context));
  tg->Submit(*receive.context);
  EXPECT_EQ(receive.status(), TgStatusRetry);
  EXPECT_FALSE(gate->WaitIdle(1ms));
  receive.packet.buffers[0].byteCount = 512;
  for (std::uint32_t code = 1; code <= 3; ++code) gate->Push(host::Envelope(code));
  for (std::uint32_t code = 1; code <= 3; ++code) {  // all, in their order
    tg->Submit(*receive.context);
    EXPECT_TRUE(tg->Poll(*receive.context));
    EXPECT_EQ(host::GetU32(receive.memory, 0), code);
  }
}

TEST_F(HostGateTest, TheReplyIsWrittenOverTheCommandAndNeverPastItsBuffer) {
  const struct {
    std::uint32_t buffer;
    std::size_t reply;
    std::uint32_t status, returned;
  } cases[] = {{64, 20, 0, 48}, {64, 64, 5, 48}, {64, 65, 0, 1}, {277784, 277784, 0, 48}, {21, 0, 0, 0}};
  const host::Bytes command = host::SharingCommand(true);
  for (const auto& c : cases) {
    host::Bytes seen, memory = command;
    gate->Serve([&](std::span<const std::byte> envelope) {
      seen.assign(envelope.begin(), envelope.end());
      return host::Reply{host::Bytes(c.reply, std::byte{0xAB}), c.status, c.returned};
    });
    memory.resize(c.buffer + 8);  // the last 8 bytes are not the request's
    host::Bytes expected = memory;
    std::fill_n(expected.begin(), std::min<std::size_t>(c.reply, c.buffer), std::byte{0xAB});
    std::uint32_t status = 0x1234;
    EXPECT_EQ(ToolDevice().Ioctl(TgSendCommand, memory.data(), c.buffer, &status), c.returned);
    EXPECT_EQ(seen, command);
    EXPECT_EQ(status, c.status);
    EXPECT_EQ(memory, expected);
  }
}

TEST_F(HostGateTest, EachBreachOfTheContractIsRecorded) {
  const auto open = [](DWORD share) {
    return UniqueFile(CreateFileW(TEXT("\\\\.\\tsr_tg"), GENERIC_READ | GENERIC_WRITE, share, nullptr,
                                  OPEN_EXISTING, 0, nullptr));
  };
  const UniqueFile device = open(FILE_SHARE_READ | FILE_SHARE_WRITE);
  const auto control = [&](auto& packet, DWORD size = sizeof(TgPacket<2>), DWORD code = IOCTL_TG_REQUEST) {
    DWORD returned = 0;
    return DeviceIoControl(device.get(), code, &packet, size, &packet, size, &returned, nullptr);
  };
  const struct {
    const char* what;
    std::function<void(WMA_Command& header, TgRequest& request, TgBuffer* buffers)> spoil;
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
      {"short", [](auto&, auto&, auto* buffers) { buffers[0].byteCount = buffers[1].byteCount = 19; }},
      {"no memory", [](auto&, auto&, auto* buffers) { buffers[0].address = buffers[1].address = 0; }},
      {"version", [](auto& header, auto&, auto*) { header.version = 2; }},
      {"result", [](auto& header, auto&, auto*) { header.result = 1; }},
      {"envelope reserved", [](auto& header, auto&, auto*) { header.reserved = 1; }},
      {"data past the buffer", [](auto& header, auto&, auto*) { header.dataSize = 45; }},
  };
  std::size_t expected = 0;
  for (const auto& c : cases) {
    Send send;
    c.spoil(*reinterpret_cast<WMA_Command*>(send.memory.data()), send.packet.header, send.packet.buffers);
    control(send.packet);
    EXPECT_EQ(gate->Facts().breaches.size(), ++expected) << c.what;
  }
  for (const std::uint32_t size : {511u, 513u}) {
    Receive receive;
    receive.packet.buffers[0].byteCount = size;
    EXPECT_FALSE(control(receive.packet, sizeof receive.packet));
    EXPECT_EQ(gate->Facts().breaches.size(), ++expected) << size;
  }
  Send send;
  EXPECT_FALSE(control(send.packet, 48, IOCTL_TG_REQUEST + 4));
  EXPECT_FALSE(control(send.packet, 40));
  EXPECT_TRUE(open(FILE_SHARE_READ));
  EXPECT_EQ(gate->Facts().breaches.size(), expected + 3);
}

}  // namespace
