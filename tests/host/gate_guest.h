// The guest's side of the gate in plain control calls, for the tests of the gates themselves.
// A call's request and buffer live in the object: keep it until the call has ended.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <span>
#include <vector>

#include "channel/tool_gate.h"
#include "host/wire.h"

namespace gate_guest {

inline HANDLE OpenGate(DWORD flags = FILE_FLAG_OVERLAPPED) {
  return CreateFileW(TEXT("\\\\.\\tsr_tg"), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                     nullptr, OPEN_EXISTING, flags, nullptr);
}

using host::Envelope;

// One overlapped control call; results are system errors, 0 for success.
template <std::size_t Count>
class GateCall {
 public:
  GateCall(HANDLE device, std::size_t size) : memory(size), device_(device) {
    for (std::size_t i = 0; i < Count; ++i) {
      const bool last = i + 1 == Count;
      packet.buffers[i] =
          MakeTgBuffer(memory.data(), static_cast<std::uint32_t>(size), last ? deviceWrites : 0);
    }
    packet.header.request = Count == 1 ? TgReceiveCommand : TgSendCommand;
    packet.header.bufferCount = Count;
    record_.hEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  }
  ~GateCall() { CloseHandle(record_.hEvent); }
  GateCall(const GateCall&) = delete;
  GateCall& operator=(const GateCall&) = delete;

  DWORD Submit(DWORD code = IOCTL_TG_REQUEST, DWORD size = sizeof(TgPacket<Count>)) {
    return DeviceIoControl(device_, code, &packet, size, &packet, size, nullptr, &record_) ? Finish()
                                                                                           : GetLastError();
  }
  // Waits for the end of a pending call.
  DWORD Finish() {
    EXPECT_EQ(WaitForSingleObject(record_.hEvent, 10000), WAIT_OBJECT_0);
    return GetOverlappedResult(device_, &record_, &returned, FALSE) ? 0 : GetLastError();
  }
  DWORD SubmitAndFinish() {
    const DWORD error = Submit();
    return error == ERROR_IO_PENDING ? Finish() : error;
  }

  std::vector<std::byte> memory;
  TgPacket<Count> packet{};
  DWORD returned = 0;

 private:
  HANDLE device_;
  OVERLAPPED record_{};
};

struct GateReceive : GateCall<1> {
  explicit GateReceive(HANDLE device) : GateCall(device, 512) {}
};

struct GateSend : GateCall<2> {
  GateSend(HANDLE device, std::span<const std::byte> envelope, std::size_t size) : GateCall(device, size) {
    std::memcpy(memory.data(), envelope.data(), envelope.size());
  }
};

inline bool StartsWith(std::span<const std::byte> memory, std::span<const std::byte> bytes) {
  return memory.size() >= bytes.size() && std::ranges::equal(memory.first(bytes.size()), bytes);
}

}  // namespace gate_guest
