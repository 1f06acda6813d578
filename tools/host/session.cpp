// The session's commands and their time limit. A command is over when the guest has a receive outstanding
// again, because it runs every command to its end before it asks for the next.
#include "host/session.h"

#include <future>
#include <stdexcept>
#include <thread>

namespace host {

[[noreturn]] static void Fail(const std::string& what) {
  throw std::runtime_error(what);
}

Session::Session(const std::filesystem::path& module, std::chrono::milliseconds limit)
    : limit_(limit), gate_(CreateGate()), module_(std::make_unique<Module>(module)) {
  Share({});
  gate_->Serve([this](std::span<const std::byte> envelope) { return Answer(envelope); });
}

Session::~Session() {
  if (running_ && !stuck_) {
    try {
      Stop();
    } catch (const std::exception&) {
      stuck_ = true;  // a failure is on its way out already, or the caller did not ask
    }
  }
  if (stuck_) {  // the module's thread still uses both
    gate_->Serve({});
    static_cast<void>(gate_.release());
    static_cast<void>(module_.release());
  }
}

void Session::Share(Catalogue catalogue) {
  AnswerBy([shared = std::move(catalogue)](std::span<const std::byte> envelope) {
    return AnswerCommand(shared, envelope);
  });
}

void Session::AnswerBy(Answerer answerer) {
  std::lock_guard lock(mutex_);
  answerer_ = std::move(answerer);
}

Reply Session::Answer(std::span<const std::byte> envelope) {
  std::lock_guard lock(mutex_);
  const Question question = ReadQuestion(envelope);
  requests_.announcements += question.code == sharingCode;
  requests_.lists += question.code == listCode;
  requests_.icons += question.code == iconsCode;
  requests_.details += question.code == detailsCode;
  asked_.notify_all();
  conversation_.Hear(Direction::Request, envelope);
  Reply reply = answerer_(envelope);
  conversation_.Hear(Direction::Reply, reply.bytes, reply.status);
  return reply;
}

std::int32_t Session::WithinLimit(const char* what, std::function<std::int32_t()> call) {
  std::packaged_task<std::int32_t()> task(std::move(call));
  std::future<std::int32_t> result = task.get_future();
  std::thread thread(std::move(task));
  if (result.wait_for(limit_) == std::future_status::timeout) {
    thread.detach();
    stuck_ = true;
    Fail(std::string(what) + " did not return within the time limit");
  }
  thread.join();
  return result.get();
}

void Session::WaitIdle(const char* what) {
  std::uint64_t sends = 0;
  do {
    sends = gate_->Facts().sends;
    if (gate_->WaitIdle(limit_)) return;
  } while (sends != gate_->Facts().sends);  // the guest is at work
  stuck_ = true;
  Fail(std::string("the guest was not ready again within the time limit, after: ") + what);
}

// The announcement goes out while a receive is outstanding, so an idle guest may still be about to send it.
void Session::WaitAnnounced() {
  std::unique_lock lock(mutex_);
  if (!asked_.wait_for(lock, limit_, [this] { return requests_.announcements > 0; })) {
    Fail("the guest did not announce itself within the time limit");
  }
}

void Session::Start() {
  if (running_) Fail("the module runs already");
  const std::int32_t result = WithinLimit("StartTool", [module = module_.get()] { return module->Start(); });
  if (result != 0) Fail("StartTool returned " + std::to_string(result));
  running_ = true;
  WaitIdle("start");
  WaitAnnounced();
}

void Session::Announce() {
  Command("request to announce", AnnounceCommand());
  WaitAnnounced();
}

Requests Session::Command(const char* what, std::span<const std::byte> envelope) {
  if (!running_) Fail("the module does not run");
  {
    std::lock_guard lock(mutex_);
    requests_ = {};
  }
  conversation_.Hear(Direction::Command, envelope);
  gate_->Push(envelope);
  WaitIdle(what);
  const GateFacts facts = gate_->Facts();
  if (!facts.breaches.empty()) Fail("the guest broke the gate's contract: " + facts.breaches.front());
  std::lock_guard lock(mutex_);
  return requests_;
}

Requests Session::On() {
  const Requests seen = Command("sharing on", SharingCommand(true));
  if (seen.lists != 1) {
    Fail("after \"on\" the guest asked for the list " + std::to_string(seen.lists) + " times, not once");
  }
  return seen;
}

Requests Session::Off() {
  const Requests seen = Command("sharing off", SharingCommand(false));
  if (seen.lists + seen.icons + seen.details != 0)
    Fail("after \"off\" the guest still asked for applications");
  return seen;
}

void Session::Stop() {
  if (!running_) Fail("the module does not run");
  WithinLimit("StopTool", [module = module_.get()] { return module->Stop(); });
  running_ = false;
  const GateFacts facts = gate_->Facts();
  if (facts.opens != facts.closes) {
    Fail("the module left " + std::to_string(facts.opens - facts.closes) + " handles of the gate open");
  }
}

}  // namespace host
