// The two requests of the tool gate as the module makes them, and how they fail.
#pragma once

#include <array>

#include "channel/tg.h"
#include "support/gate_fixture.h"

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
  host::Bytes memory = host::Envelope(100, host::Bytes(44));
  TgPacket<2> packet{{TgSendCommand, 0, 0, 2, 0},
                     {MakeTgBuffer(memory.data(), 64, 0), MakeTgBuffer(memory.data(), 64, deviceWrites)}};
};
