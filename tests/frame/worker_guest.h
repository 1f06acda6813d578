// A guest whose worker the test starts and stops, and a host that notes every question. A command is over
// when the next receive is outstanding; the announcement comes after that, so a test awaits it by its
// question.
#pragma once

#include <algorithm>
#include <condition_variable>
#include <functional>
#include <mutex>

#include "channel/tool_gate.h"
#include "frame/worker.h"
#include "support/gate_fixture.h"

class WorkerGuest : public GateTest {
 protected:
  using Bytes = std::vector<std::byte>;
  static constexpr std::chrono::seconds patience{30};

  void SetUp() override {
    GateTest::SetUp();
    InstallTools();
    gate().Serve([this](std::span<const std::byte> envelope) { return Answer(envelope); });
  }
  void TearDown() override {
    StopWorker();
    GateTest::TearDown();
  }

  // Called for each question before it is noted and answered.
  void Watch(std::function<void(std::span<const std::byte>)> watcher) {
    std::lock_guard lock(mutex_);
    watcher_ = std::move(watcher);
  }

  // The codes of all questions since the last call.
  std::vector<std::uint32_t> TakeAsked() {
    std::lock_guard lock(mutex_);
    return std::exchange(asked_, {});
  }
  // Waits until `code` has been asked since the questions were last taken.
  void Await(std::uint32_t code) {
    std::unique_lock lock(mutex_);
    const bool seen = changed_.wait_for(lock, patience, [&] { return std::ranges::count(asked_, code) > 0; });
    EXPECT_TRUE(seen) << "question " << code << " does not come";
  }
  void AwaitIdle() { EXPECT_TRUE(gate().WaitIdle(patience)) << "no receive"; }
  void Run(const Bytes& command) {
    gate().Push(command);
    AwaitIdle();
  }
  void StartAndAwaitAnnouncement() {
    EXPECT_TRUE(StartWorker());
    Await(CmdSharingState);
    AwaitIdle();
  }

  static Bytes Command(std::uint32_t code, const Bytes& data = {}) {
    Bytes bytes;
    for (const std::uint32_t field : {code, 3u, 0u, 0u, static_cast<std::uint32_t>(data.size())}) {
      host::PutU32(bytes, field);
    }
    bytes.insert(bytes.end(), data.begin(), data.end());
    return bytes;
  }

 private:
  host::Reply Answer(std::span<const std::byte> envelope) {
    std::function<void(std::span<const std::byte>)> watcher;
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
  std::vector<std::uint32_t> asked_;
  std::function<void(std::span<const std::byte>)> watcher_;
};
