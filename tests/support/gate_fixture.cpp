// The host of the tests, over the gate of this build.
#include "support/gate_fixture.h"

#include <algorithm>

void GateTest::SetUp() {
  GuestTest::SetUp();
  gate_ = host::CreateGate();
  gate_->Serve([this](std::span<const std::byte> envelope) { return Answer(envelope); });
}

void GateTest::TearDown() {
  for (const std::string& breach : gate_->Facts().breaches)
    ADD_FAILURE() << "breach of the contract: " << breach;
  gate_.reset();
  GuestTest::TearDown();
}

host::Catalogue GateTest::Share(const std::vector<host::Application>& applications) {
  host::Catalogue catalogue;
  for (const host::Application& application : applications) catalogue.Add(application);
  std::lock_guard lock(mutex_);
  return catalogue_ = catalogue;
}

void GateTest::ReplyWith(std::uint32_t code, host::Bytes data) {
  std::lock_guard lock(mutex_);
  fixed_[code] = std::move(data);
}

void GateTest::Watch(Watcher watcher) {
  std::lock_guard lock(mutex_);
  watcher_ = std::move(watcher);
}

GateTest::Codes GateTest::TakeAsked() {
  std::lock_guard lock(mutex_);
  return std::exchange(asked_, {});
}

void GateTest::Await(std::uint32_t code) {
  std::unique_lock lock(mutex_);
  const bool seen = changed_.wait_for(lock, patience(), [&] { return std::ranges::count(asked_, code) > 0; });
  EXPECT_TRUE(seen) << "question " << code << " does not come";
}

host::Reply GateTest::Answer(std::span<const std::byte> envelope) {
  std::unique_lock lock(mutex_);
  if (const Watcher watcher = watcher_) {
    lock.unlock();
    watcher(envelope);
    lock.lock();
  }
  const std::uint32_t code = host::GetU32(envelope, 0);
  asked_.push_back(code);
  changed_.notify_all();
  const auto fixed = fixed_.find(code);
  if (fixed == fixed_.end()) return host::AnswerCommand(catalogue_, envelope);
  return {.bytes = host::Envelope(code, fixed->second)};
}

host::Bytes TestBitmap(std::uint32_t width, std::uint32_t height) {
  host::Bytes bmp = host::BlankBitmap(width, height);
  for (std::size_t at = 54; at < bmp.size(); ++at) bmp[at] = static_cast<std::byte>(at * 0x9E3779B1 >> 16);
  return bmp;
}

host::Application TestApplication(const std::string& name, const Texts& types, const Texts& defaults,
                                  const Texts& schemes) {
  host::Application application;
  application.bundleId = "test." + name;
  application.name = name;
  application.documentTypes = types;
  application.defaultTypes = defaults;
  application.urlSchemes = schemes;
  application.icons.push_back({.file = "icon.png", .size = 16, .accepted = true, .bmp = TestBitmap(16, 16)});
  return application;
}
