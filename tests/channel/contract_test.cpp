// The numbers of the contract with the host and its driver, each once and as a number. Everything else may
// call them by the module's names.
#include <gtest/gtest.h>

#include "channel/tool_gate.h"
#include "common/names.h"
#include "frame/event_loop.h"
#include "launcher/resop.h"
#include "log/log.h"

TEST(Contract, NumbersAreThoseThatTheOtherSidesHave) {
  const struct {
    const char* name;
    std::uint64_t ours, theirs;
  } numbers[] = {
      {"control code", IOCTL_TG_REQUEST, 0x22A004},
      {"receive a command", TgReceiveCommand, 0x9100},
      {"send a command", TgSendCommand, 0x8301},
      {"status success", TgStatusSuccess, 0},
      {"status cancelled", TgStatusCancelled, 0xF0000000},
      {"status requeue", TgStatusRequeue, 0xF0000020},
      {"status retry", TgStatusRetry, 0xF0000025},
      {"flag of buffers that are written", deviceWrites, 1},
      {"request and its two buffers", sizeof(TgPacket<2>), 48},
      {"request's status", offsetof(TgRequest, status), 4},
      {"request's inline bytes", offsetof(TgRequest, inlineByteCount), 8},
      {"request's buffers", offsetof(TgRequest, bufferCount), 10},
      {"size of a buffer", offsetof(TgBuffer, byteCount), 8},
      {"flags of a buffer", offsetof(TgBuffer, flags), 12},
      {"receive buffer", receiveBufferSize, 512},
      {"envelope", sizeof(WMA_Command), 20},
      {"envelope's version", offsetof(WMA_Command, version), 4},
      {"envelope's result", offsetof(WMA_Command, result), 8},
      {"envelope's data size", offsetof(WMA_Command, dataSize), 16},
      {"version", commandVersion, 3},
      {"request to announce", CmdAnnounceRequest, 1},
      {"sharing state and announcement", CmdSharingState, 100},
      {"list", CmdGetAppList, 102},
      {"icons", CmdGetAppIcons, 103},
      {"details", CmdGetAppDetails, 104},
      {"number item", WMA_Command::bbt_uint32, 1},
      {"bitmap item", WMA_Command::bbt_bitmap, 2},
      {"text item", WMA_Command::bbt_utf8string, 3},
      {"flag item", WMA_Command::bbt_flag, 4},
      {"default type item", WMA_Command::bbt_default_type, 5},
      {"scheme item", WMA_Command::bbt_url_scheme, 6},
      {"icon group", IconGroupId, 448},
      {"log threshold", LogThreshold, 1},
      {"stop message", stopMessage, 0x400},
      {"quit message", WM_QUIT, 0x12},
      {"pending", ERROR_IO_PENDING, 997},
      {"aborted", ERROR_OPERATION_ABORTED, 995},
      {"retry", ERROR_RETRY, 1237},
      {"quota", ERROR_WORKING_SET_QUOTA, 1453},
      {"already in flight", ERROR_INVALID_PARAMETER, 87},
      {"file was there", ERROR_ALREADY_EXISTS, 183},
  };
  for (const auto& number : numbers) EXPECT_EQ(number.ours, number.theirs) << number.name;
}
