// A guest with the module in it, which the test starts and stops by its exports, and a host that notes every
// question. A command is over when the next receive is outstanding; the announcement comes after that, so a
// test awaits it by its question.
#pragma once

#include <algorithm>
#include <condition_variable>
#include <functional>
#include <future>
#include <mutex>
#include <thread>

#include "frame/event_loop.h"
#include "host/system.h"
#include "host/wire.h"
#include "support/gate_fixture.h"

class ToolGuest : public GateTest {
 protected:
  using Bytes = host::Bytes;
  using Codes = std::vector<std::uint32_t>;
  using Watcher = std::function<void(std::span<const std::byte> envelope)>;
  static constexpr std::chrono::seconds patience{30};
  static constexpr std::uint32_t announcement = 100, list = 102;

  void SetUp() override {
    GateTest::SetUp();
    InstallTools();
    module = host::LoadModule(host::DefaultModule());
    gate().Serve([this](std::span<const std::byte> envelope) { return Answer(envelope); });
  }
  void TearDown() override {
    if (module) module->Stop();
    module.reset();
    GateTest::TearDown();
  }

  // Called for each question before it is noted and answered.
  void Watch(Watcher watcher) {
    std::lock_guard lock(mutex_);
    watcher_ = std::move(watcher);
  }
  // The codes of all questions since the last call.
  Codes TakeAsked() {
    std::lock_guard lock(mutex_);
    return std::exchange(asked_, {});
  }
  // Waits until `code` has been asked since the questions were last taken.
  void Await(std::uint32_t code) {
    std::unique_lock lock(mutex_);
    const bool seen = changed_.wait_for(lock, patience, [&] { return std::ranges::count(asked_, code) > 0; });
    EXPECT_TRUE(seen) << "question " << code << " does not come";
  }
  void Run(const Bytes& command) {
    gate().Push(command);
    EXPECT_TRUE(gate().WaitIdle(patience)) << "no receive";
  }
  void StartAndAwaitAnnouncement() {
    EXPECT_EQ(module->Start(), 0);
    Await(announcement);
    EXPECT_TRUE(gate().WaitIdle(patience)) << "no receive";
  }

  const Bytes on = host::Envelope(100, Bytes{std::byte{1}}), off = host::Envelope(100, Bytes{std::byte{0}});
  const Bytes other = host::Envelope(7), announce = host::Envelope(1);
  std::unique_ptr<host::Module> module;

 private:
  host::Reply Answer(std::span<const std::byte> envelope) {
    Watcher watcher;
    {
      std::lock_guard lock(mutex_);
      watcher = watcher_;
    }
    if (watcher) watcher(envelope);
    std::lock_guard lock(mutex_);
    asked_.push_back(host::GetU32(envelope, 0));
    changed_.notify_all();
    return host::AnswerCommand({}, envelope);
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  Codes asked_;
  Watcher watcher_;
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
