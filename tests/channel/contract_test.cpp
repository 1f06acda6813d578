// The numbers of the contract with the host, its driver and the system, each once and as a number. Everything
// else may call them by the module's names. Places within the records are asserted where they are declared.
#include <gtest/gtest.h>

#include "channel/tool_gate.h"
#include "frame/event_loop.h"
#include "launcher/resop.h"
#include "log/log.h"

namespace {
using Numbers = std::vector<std::uint64_t>;
}

TEST(Contract, NumbersAreThoseOfTheOtherSides) {
  EXPECT_EQ((Numbers{IOCTL_TG_REQUEST, TgReceiveCommand, TgSendCommand, deviceWrites}),
            (Numbers{0x22A004, 0x9100, 0x8301, 1}));
  EXPECT_EQ((Numbers{TgStatusSuccess, TgStatusCancelled, TgStatusRequeue, TgStatusRetry}),
            (Numbers{0, 0xF0000000, 0xF0000020, 0xF0000025}));
  EXPECT_EQ((Numbers{commandVersion, CmdAnnounceRequest, CmdSharingState, CmdGetAppList, CmdGetAppIcons,
                     CmdGetAppDetails}),
            (Numbers{3, 1, 100, 102, 103, 104}));
  EXPECT_EQ((Numbers{WMA_Command::bbt_uint32, WMA_Command::bbt_bitmap, WMA_Command::bbt_utf8string,
                     WMA_Command::bbt_flag, WMA_Command::bbt_default_type, WMA_Command::bbt_url_scheme}),
            (Numbers{1, 2, 3, 4, 5, 6}));
  EXPECT_EQ((Numbers{sizeof(TgPacket<1>), sizeof(TgPacket<2>), sizeof(WMA_Command), receiveBufferSize}),
            (Numbers{32, 48, 20, 512}));
  EXPECT_EQ((Numbers{stopMessage, WM_QUIT, IconGroupId, static_cast<std::uint64_t>(LogThreshold)}),
            (Numbers{0x400, 0x12, 448, 1}));
  EXPECT_EQ((Numbers{ERROR_IO_PENDING, ERROR_OPERATION_ABORTED, ERROR_RETRY, ERROR_WORKING_SET_QUOTA,
                     ERROR_INVALID_PARAMETER, ERROR_ALREADY_EXISTS}),
            (Numbers{997, 995, 1237, 1453, 87, 183}));
}
