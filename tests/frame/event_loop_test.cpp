// The event loop through the module: when it announces, which commands it runs, and how each end of a receive
// moves it on. What a loop did is looked at after its worker has been stopped, when it can do no more.

#include "launcher/fs.h"
#include "support/module_fixture.h"
#include "support/tool_guest.h"

namespace {

class EventLoop : public ToolGuest {
 protected:
  static bool FolderIsThere() { return FileIsThere(Utf8ToWide(host::LauncherFolder())); }
};

TEST_F(EventLoop, AnnouncesOnceWhileAReceiveWaitsAndAgainWhenAsked) {
  Watch([&](std::span<const std::byte> envelope) {
    EXPECT_EQ(Bytes(envelope.begin(), envelope.end()), on);
    EXPECT_TRUE(gate().WaitIdle(patience()));
  });
  StartAndAwaitAnnouncement();
  for (const std::uint32_t code : {0u, 2u, 99u, 101u, 102u, 103u, 104u, 0x8301u})
    Run(host::Envelope(code, Bytes(1)));
  EXPECT_EQ(TakeAsked(), Codes{announcement});
  for (int i = 0; i < 2; ++i) {
    Run(announce);
    Await(announcement);
    Run(other);
    EXPECT_EQ(TakeAsked(), Codes{announcement});
  }
  module->Stop();
  EXPECT_TRUE(TakeAsked().empty());
}

TEST_F(EventLoop, CommandsThatWaitAlreadyRunBeforeTheAnnouncement) {
  for (const Bytes& command : {announce, on, announce, on}) gate().Push(command);
  StartAndAwaitAnnouncement();
  module->Stop();
  EXPECT_EQ(TakeAsked(), (Codes{list, list, announcement}));
}

TEST_F(EventLoop, EverySharingCommandWithAByteIsHandledOnce) {
  StartAndAwaitAnnouncement();
  TakeAsked();
  for (const int byte : {1, 2, 255, 1, 128}) {
    Run(host::Envelope(100, Bytes{static_cast<std::byte>(byte)}));
    EXPECT_EQ(TakeAsked(), Codes{list}) << byte;
  }
  Run(host::Envelope(100));  // the byte of the last command lies behind it still
  EXPECT_TRUE(TakeAsked().empty());
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(FolderIsThere(), i == 0);
    Run(off);
    EXPECT_FALSE(FolderIsThere());
  }
  LauncherFolder();
  Run(host::Envelope(100));
  EXPECT_TRUE(FolderIsThere());
  // Only code, size and byte count.
  Bytes odd = on;
  for (const std::size_t at : {4u, 8u, 12u}) odd[at] = std::byte{0xFF};
  odd[16] = std::byte{200};
  Run(odd);
  EXPECT_EQ(TakeAsked(), Codes{list});
}

TEST_F(EventLoop, AFailedCommandLeavesNoTraceAndTheNextOneIsHandled) {
  StartAndAwaitAnnouncement();
  TakeAsked();
  gate().FailNext({.request = host::sendCommand, .systemError = ERROR_NOT_READY});
  Run(on);  // its list request fails
  EXPECT_TRUE(TakeAsked().empty());
  Run(on);
  EXPECT_EQ(TakeAsked(), Codes{list});
}

// A receive that ends without a command, after one that brought "on": the command is not run again, and the
// stop cancels what is outstanding then and nothing else.
TEST_F(EventLoop, AReceiveThatFailsIsSubmittedAgainOrEndsReceiving) {
  struct Case {
    host::Fault fault;
    bool again;
  };
  const Case cases[] = {{{.status = 0xF0000020}, true},
                        {{.status = 0xF0000025}, true},
                        {{.systemError = ERROR_RETRY}, true},
                        {{.systemError = ERROR_WORKING_SET_QUOTA}, true},
                        {{.status = 0xF0000000}, false},
                        {{.status = 5}, false},
                        {{.systemError = ERROR_OPERATION_ABORTED}, false},
                        {{.systemError = ERROR_GEN_FAILURE}, false},
                        {{.status = 0xF0000020, .pendFirst = true}, true},
                        {{.status = 0xF0000000, .pendFirst = true}, true},
                        {{.status = 5, .pendFirst = true}, true},
                        {{.systemError = ERROR_RETRY, .pendFirst = true}, true},
                        {{.systemError = ERROR_OPERATION_ABORTED, .pendFirst = true}, true}};
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::Message() << "error " << c.fault.systemError << " status " << std::hex
                                      << c.fault.status << (c.fault.pendFirst ? " after pending" : ""));
    const host::GateFacts before = gate().Facts();
    StartAndAwaitAnnouncement();
    gate().FailNext(c.fault);
    gate().Push(on);
    Await(list);
    if (c.again) {
      EXPECT_TRUE(gate().WaitIdle(patience()));
    }
    module->Stop();
    const host::GateFacts facts = gate().Facts();
    EXPECT_EQ(facts.receives - before.receives, c.again ? 3u : 2u);
    EXPECT_EQ(facts.cancelled - before.cancelled, c.again ? 1u : 0u);
    EXPECT_EQ(facts.closes, facts.opens);
    EXPECT_EQ(TakeAsked(), (Codes{announcement, list}));
  }
}

TEST_F(EventLoop, OnlyTheStopMessageEndsTheLoop) {
  {
    LoopThread loop;
    Await(announcement);
    for (const UINT message : {0u, 0x3FFu, 0x401u}) {
      loop.Post(message);
      Run(on);
    }
    EXPECT_EQ(TakeAsked(), (Codes{announcement, list, list, list}));
  }
  EXPECT_EQ(gate().Facts().cancelled, 1u);
}

}  // namespace
