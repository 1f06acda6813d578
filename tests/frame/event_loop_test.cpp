// The event loop through the worker: when it announces, which commands it runs, and how each end of a receive
// moves it on. What a loop did is looked at after its worker has been stopped, when it can do no more.
#include "frame/event_loop.h"

#include <shlwapi.h>

#include <future>
#include <thread>

#include "frame/worker_guest.h"
#include "launcher/fs.h"

namespace {

class EventLoop : public WorkerGuest {
 protected:
  static bool Exists(const WideString& path) {
    return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
  }

  const Bytes on = host::SharingCommand(true), off = host::SharingCommand(false);
};

TEST_F(EventLoop, AnnouncesOnceWhileAReceiveWaitsAndAgainWhenAsked) {
  Watch([&](std::span<const std::byte> envelope) {
    EXPECT_EQ(Bytes(envelope.begin(), envelope.end()), on);  // the same bytes in this direction
    EXPECT_TRUE(gate().WaitIdle(patience));
  });
  StartAndAwaitAnnouncement();
  for (const std::uint32_t code : {0u, 2u, 99u, 101u, 102u, 103u, 104u, 0x8301u})
    Run(Command(code, Bytes(1)));
  EXPECT_EQ(TakeAsked(), std::vector{CmdSharingState});
  for (int i = 0; i < 2; ++i) {
    Run(host::AnnounceCommand());
    Await(CmdSharingState);
    Run(Command(7));
    EXPECT_EQ(TakeAsked(), std::vector{CmdSharingState});
  }
  EXPECT_TRUE(StopWorker());
  EXPECT_TRUE(TakeAsked().empty());
}

TEST_F(EventLoop, CommandsThatWaitAlreadyRunBeforeTheAnnouncement) {
  for (const Bytes& command : {host::AnnounceCommand(), on, host::AnnounceCommand(), on})
    gate().Push(command);
  StartAndAwaitAnnouncement();
  EXPECT_TRUE(StopWorker());
  EXPECT_EQ(TakeAsked(), (std::vector{CmdGetAppList, CmdGetAppList, CmdSharingState}));
}

TEST_F(EventLoop, EverySharingCommandWithAByteIsHandledOnce) {
  StartAndAwaitAnnouncement();
  TakeAsked();
  const WideString launchers = LauncherFolder(), shortcuts = ShortcutFolder();
  for (const int byte : {1, 2, 255, 1, 128}) {
    Run(Command(CmdSharingState, {static_cast<std::byte>(byte)}));
    EXPECT_EQ(TakeAsked(), std::vector{CmdGetAppList}) << byte;
    EXPECT_TRUE(Exists(launchers));
  }
  Run(Command(CmdSharingState));  // the byte of the last command lies behind it still
  EXPECT_TRUE(TakeAsked().empty());
  for (int i = 0; i < 2; ++i) {
    Run(off);
    EXPECT_FALSE(Exists(launchers));
    EXPECT_FALSE(Exists(shortcuts));
  }
  LauncherFolder();
  Run(Command(CmdSharingState));
  EXPECT_TRUE(Exists(launchers));
  // Only code, size and byte count.
  Bytes odd = on;
  for (const std::size_t at : {4u, 8u, 12u}) odd[at] = std::byte{0xFF};
  odd[16] = std::byte{200};
  EXPECT_TRUE(TakeAsked().empty());
  Run(odd);
  EXPECT_EQ(TakeAsked(), std::vector{CmdGetAppList});
}

TEST_F(EventLoop, AFailedCommandLeavesNoTraceAndTheNextOneIsHandled) {
  StartAndAwaitAnnouncement();
  TakeAsked();
  for (const std::uint32_t error : {ERROR_NOT_READY, ERROR_RETRY}) {
    gate().FailNext({.request = host::sendCommand, .systemError = error});
    Run(on);  // its list request fails
  }
  EXPECT_TRUE(TakeAsked().empty());
  Run(on);
  EXPECT_EQ(TakeAsked(), std::vector{CmdGetAppList});

  // A withdrawal that cannot open the classes leaves both folders alone.
  const WideString launchers = LauncherFolder(), shortcuts = ShortcutFolder();
  EXPECT_EQ(SHDeleteKeyW(HKEY_CURRENT_USER, TEXT("Software\\Classes")), ERROR_SUCCESS);
  Run(off);
  EXPECT_TRUE(Exists(launchers));
  EXPECT_TRUE(Exists(shortcuts));
  InstallTools();
  Run(off);
  EXPECT_FALSE(Exists(launchers));
  EXPECT_FALSE(Exists(shortcuts));
}

// A receive that ends without a command, after one that brought "on": the command is not run again.
TEST_F(EventLoop, AReceiveThatFailsIsSubmittedAgainOrEndsReceiving) {
  struct Case {
    host::Fault fault;
    bool again;
  };
  const Case cases[] = {
      {{.status = TgStatusRequeue}, true},
      {{.status = TgStatusRetry}, true},
      {{.systemError = ERROR_RETRY}, true},
      {{.systemError = ERROR_WORKING_SET_QUOTA}, true},
      {{.status = TgStatusCancelled}, false},
      {{.status = 5}, false},
      {{.systemError = ERROR_OPERATION_ABORTED}, false},
      {{.status = TgStatusRequeue, .pendFirst = true}, true},
      {{.status = TgStatusRetry, .pendFirst = true}, true},
      {{.status = TgStatusCancelled, .pendFirst = true}, true},
      {{.status = 5, .pendFirst = true}, true},
      {{.systemError = ERROR_RETRY, .pendFirst = true}, true},
      {{.systemError = ERROR_OPERATION_ABORTED, .pendFirst = true}, true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::Message() << "error " << c.fault.systemError << " status " << std::hex
                                      << c.fault.status << (c.fault.pendFirst ? " after pending" : ""));
    const host::GateFacts before = gate().Facts();
    StartAndAwaitAnnouncement();
    gate().FailNext(c.fault);
    gate().Push(on);
    Await(CmdGetAppList);
    if (c.again) AwaitIdle();
    EXPECT_TRUE(StopWorker());
    const host::GateFacts facts = gate().Facts();
    EXPECT_EQ(facts.receives - before.receives, c.again ? 3u : 2u);
    EXPECT_EQ(facts.cancelled - before.cancelled, c.again ? 1u : 0u);
    EXPECT_EQ(TakeAsked(), (std::vector{CmdSharingState, CmdGetAppList}));
  }
}

TEST_F(EventLoop, ALoopThatEndedReceivingBeforeItAnnouncedStaysSilentUntilItIsStopped) {
  gate().FailNext({.status = TgStatusRequeue});
  gate().FailNext({.status = TgStatusCancelled});
  EXPECT_TRUE(StartWorker());
  gate().Push(on);
  EXPECT_TRUE(StartWorker());
  EXPECT_TRUE(StopWorker());
  EXPECT_EQ(gate().Facts().receives, 2u);
  EXPECT_EQ(gate().Facts().opens, 1u);
  EXPECT_TRUE(TakeAsked().empty());
}

TEST_F(EventLoop, WhatTheHostAnswersToTheAnnouncementIsIgnored) {
  const host::Fault faults[] = {
      {.status = 5}, {.systemError = ERROR_RETRY}, {.systemError = ERROR_OPERATION_ABORTED}};
  for (host::Fault fault : faults) {
    const auto sends = gate().Facts().sends;
    fault.request = host::sendCommand;
    gate().FailNext(fault);
    EXPECT_TRUE(StartWorker());
    while (gate().Facts().sends == sends) std::this_thread::yield();
    Run(on);
    EXPECT_EQ(TakeAsked(), std::vector{CmdGetAppList});
    EXPECT_TRUE(StopWorker());
    EXPECT_EQ(gate().Facts().sends - sends, 2u);  // the announcement that failed, and the list
  }
}

TEST_F(EventLoop, OnlyTheStopMessageEndsTheLoop) {
  std::promise<DWORD> started;
  std::thread loop([&] {
    MSG message;
    PeekMessageW(&message, nullptr, stopMessage, stopMessage, PM_NOREMOVE);
    started.set_value(GetCurrentThreadId());
    ToolWorker worker;
    worker.gate = OpenTg();
    RunEventLoop(worker);
  });
  const DWORD thread = started.get_future().get();
  Await(CmdSharingState);
  AwaitIdle();
  for (const UINT message : {0u, stopMessage - 1, stopMessage + 1}) {
    EXPECT_TRUE(PostThreadMessageW(thread, message, 0, 0));
    Run(on);
  }
  EXPECT_EQ(TakeAsked(), (std::vector{CmdSharingState, CmdGetAppList, CmdGetAppList, CmdGetAppList}));
  EXPECT_TRUE(PostThreadMessageW(thread, stopMessage, 0, 0));
  loop.join();
  EXPECT_EQ(gate().Facts().cancelled, 1u);
}

// Errors that the protocol does not know end the loop; the worker stays published until it is stopped.
TEST_F(EventLoop, AnyOtherErrorEndsTheLoopAndTheNextStartAfterAStopWorks) {
  const host::Fault faults[] = {{.systemError = ERROR_GEN_FAILURE},
                                {.request = host::sendCommand, .systemError = ERROR_GEN_FAILURE}};
  for (const host::Fault& fault : faults) {
    gate().FailNext(fault);
    const host::GateFacts before = gate().Facts();
    EXPECT_TRUE(StartWorker());
    while (gate().Facts().receives == before.receives) std::this_thread::yield();
    EXPECT_TRUE(StartWorker());
    EXPECT_TRUE(StopWorker());
    const host::GateFacts facts = gate().Facts();
    EXPECT_EQ(facts.receives - before.receives, 1u);
    EXPECT_EQ(facts.closes, facts.opens);
    EXPECT_EQ(facts.cancelled - before.cancelled, fault.request == host::sendCommand ? 1u : 0u);
    TakeAsked();
    StartAndAwaitAnnouncement();
    Run(on);
    EXPECT_EQ(TakeAsked(), (std::vector{CmdSharingState, CmdGetAppList}));
    EXPECT_TRUE(StopWorker());
  }
}

}  // namespace
