// One synchronous exchange with the device: what comes back as count and as status.
#include "channel/dtool.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>

#include "channel/tool_gate.h"
#include "support/gate_fixture.h"

namespace {

class ToolDeviceTest : public GateTest {};

TEST_F(ToolDeviceTest, TheCountIsTheSystemsAndTheStatusTheDevicesOrTheSystems) {
  struct Case {
    host::Fault fault;
    std::uint32_t replyStatus, replyReturned;  // without a fault
    std::uint32_t count, status;
  };
  constexpr std::uint32_t send = TgSendCommand;
  const Case cases[] = {
      {{.request = 0}, 0, 48, 48, 0},
      {{.request = 0}, 7, 20, 20, 7},
      {{.request = 0}, 0, 0, 0, 0},
      {{.request = send, .status = TgStatusCancelled}, 0, 0, 48, TgStatusCancelled},
      {{.request = send, .systemError = ERROR_NOT_READY}, 0, 0, 0, ERROR_NOT_READY},
      {{.request = send, .systemError = ERROR_RETRY}, 0, 0, 0, ERROR_RETRY},
      {{.request = send, .systemError = ERROR_WORKING_SET_QUOTA}, 0, 0, 0, ERROR_WORKING_SET_QUOTA},
  };
  std::uint64_t sends = 0;
  for (const Case& c : cases) {
    gate().Serve([&](std::span<const std::byte> envelope) {
      EXPECT_EQ(envelope.size(), 24u);
      return host::Reply{std::vector<std::byte>(64, std::byte{0xAB}), c.replyStatus, c.replyReturned};
    });
    if (c.fault.request != 0) gate().FailNext(c.fault);
    for (const bool asked : {true, false}) {
      std::array<std::byte, 72> memory{};
      const WMA_Command header{CmdGetAppList, commandVersion, 0, 0, 4};
      std::memcpy(memory.data(), &header, sizeof header);
      std::uint32_t status = 0x1234;
      ToolDevice device;
      if (!asked && c.fault.request != 0) gate().FailNext(c.fault);
      EXPECT_EQ(device.Ioctl(TgSendCommand, memory.data(), 64, asked ? &status : nullptr), c.count);
      EXPECT_EQ(status, asked ? c.status : 0x1234u);
      if (c.fault.request == 0) {
        EXPECT_EQ(memory[63], std::byte{0xAB});
      }
      EXPECT_EQ(memory[64], std::byte{0});
      EXPECT_EQ(gate().Facts().sends, ++sends);  // never tried twice
    }
  }
}

}  // namespace
