// The contract of the tool-gate device: the request record, the command envelope, and the codes and statuses
// that both sides use. All numbers are little-endian; nothing here allocates or fails.
#pragma once

#include <windows.h>

#include <winioctl.h>

#include <cstddef>
#include <cstdint>

// Device type 0x22, function 0x801, buffered, write access.
inline constexpr DWORD IOCTL_TG_REQUEST = 0x22A004;
static_assert(IOCTL_TG_REQUEST == CTL_CODE(0x22, 0x801, METHOD_BUFFERED, FILE_WRITE_ACCESS));

inline constexpr std::uint32_t TgReceiveCommand = 0x9100;  // completes when the host has a command
inline constexpr std::uint32_t TgSendCommand = 0x8301;     // the host's reply is written in place

inline constexpr std::uint32_t TgStatusSuccess = 0;
inline constexpr std::uint32_t TgStatusCancelled = 0xF0000000;
inline constexpr std::uint32_t TgStatusRequeue = 0xF0000020;
inline constexpr std::uint32_t TgStatusRetry = 0xF0000025;

// Header of a request. Inline bytes follow, padded to a multiple of 8, then `bufferCount` TgBuffers.
struct TgRequest {
  std::uint32_t request;
  std::uint32_t status;  // written by the device
  std::uint16_t inlineByteCount;
  std::uint16_t bufferCount;
  std::uint32_t reserved;
};
static_assert(sizeof(TgRequest) == 16 && offsetof(TgRequest, inlineByteCount) == 8 &&
              offsetof(TgRequest, bufferCount) == 10 && offsetof(TgRequest, reserved) == 12);

inline constexpr std::uint32_t deviceWrites = 1;  // TgBuffer.flags; clear: the device reads the buffer

struct TgBuffer {
  std::uint64_t address;
  std::uint32_t byteCount;
  std::uint32_t flags;
};
static_assert(sizeof(TgBuffer) == 16 && offsetof(TgBuffer, byteCount) == 8 &&
              offsetof(TgBuffer, flags) == 12);

// A request without inline bytes and with `Count` buffers, as this module always sends it.
template <std::size_t Count>
struct TgPacket {
  TgRequest header;
  TgBuffer buffers[Count];
};
static_assert(sizeof(TgPacket<1>) == 32 && sizeof(TgPacket<2>) == 48);

inline TgBuffer MakeTgBuffer(void* memory, std::uint32_t byteCount, std::uint32_t flags) {
  return {reinterpret_cast<std::uintptr_t>(memory), byteCount, flags};
}

// Header of the command envelope; `dataSize` bytes follow at offset 20.
struct WMA_Command {
  // Value types of the items in an envelope's data.
  enum Type : std::uint32_t {
    bbt_uint32 = 1,
    bbt_bitmap = 2,
    bbt_utf8string = 3,
    bbt_flag = 4,
    bbt_default_type = 5,
    bbt_url_scheme = 6,
  };

  std::uint32_t code;
  std::uint32_t version;  // 3 when sent
  std::uint32_t result;   // 0: success, set by the host
  std::uint32_t reserved;
  std::uint32_t dataSize;
};
static_assert(sizeof(WMA_Command) == 20 && offsetof(WMA_Command, dataSize) == 16);

inline constexpr std::uint32_t commandVersion = 3;

// Host to guest.
inline constexpr std::uint32_t CmdAnnounceRequest = 1;
// Host to guest: sharing goes on or off. Guest to host: the announcement.
inline constexpr std::uint32_t CmdSharingState = 100;
// Guest to host.
inline constexpr std::uint32_t CmdGetAppList = 102;
inline constexpr std::uint32_t CmdGetAppIcons = 103;
inline constexpr std::uint32_t CmdGetAppDetails = 104;
