// A guest with the module in it, which the test starts and stops by its exports. A command is over when the
// next receive is outstanding; the announcement comes after that, so a test awaits it by its question.
#pragma once

#include <future>
#include <thread>

#include "frame/event_loop.h"
#include "host/system.h"
#include "support/gate_fixture.h"

class ToolGuest : public GateTest {
 protected:
  using Bytes = host::Bytes;
  static constexpr std::uint32_t announcement = 100, list = 102;

  void SetUp() override {
    GateTest::SetUp();
    host::PrepareGuest();
    module = std::make_unique<host::Module>(host::DefaultModule());
  }
  void TearDown() override {
    if (module) module->Stop();
    module.reset();
    GateTest::TearDown();
  }

  void Run(const Bytes& command) {
    gate().Push(command);
    EXPECT_TRUE(gate().WaitIdle(patience())) << "no receive";
  }
  void StartAndAwaitAnnouncement() {
    EXPECT_EQ(module->Start(), 0);
    Await(announcement);
    EXPECT_TRUE(gate().WaitIdle(patience())) << "no receive";
  }

  const Bytes on = host::SharingCommand(true), off = host::SharingCommand(false);
  const Bytes other = host::Envelope(7), announce = host::AnnounceCommand();
  std::unique_ptr<host::Module> module;
};

// The event loop alone, on a thread of its own whose queue exists; its end posts the stop message and waits.
class LoopThread {
 public:
  // `prepare` runs on the thread before the loop.
  explicit LoopThread(std::function<void()> prepare = {})
      : thread_([this, prepare = std::move(prepare)] {
          MSG message;
          PeekMessageW(&message, nullptr, 0, 0, PM_NOREMOVE);
          if (prepare) prepare();
          started_.set_value(GetCurrentThreadId());
          ToolWorker worker;
          worker.gate = OpenTg();
          RunEventLoop(worker);
        }) {}
  ~LoopThread() {
    PostThreadMessageW(id_, 0x400, 0, 0);  // in vain when the loop has ended by itself
    thread_.join();
  }
  LoopThread(const LoopThread&) = delete;
  LoopThread& operator=(const LoopThread&) = delete;

  void Post(UINT message) { EXPECT_TRUE(PostThreadMessageW(id_, message, 0, 0)); }

 private:
  std::promise<DWORD> started_;
  std::thread thread_;
  DWORD id_ = started_.get_future().get();
};
