// One run of the module against a simulated host: load it, start it, send it commands, stop it. What the
// guest does happens on the module's own thread; each call here returns when the guest is at rest again.
#pragma once

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>

#include "host/catalogue.h"
#include "host/conversation.h"
#include "host/driver/gate.h"
#include "host/replies.h"
#include "host/system.h"

namespace host {

// What the guest has asked since the last command.
struct Requests {
  int announcements = 0;
  int lists = 0;
  int icons = 0;
  int details = 0;
};

// Every failure, the time limit's too, is a std::runtime_error.
class Session {
 public:
  // Answers the guest's requests, on the module's thread.
  using Answerer = std::function<Reply(std::span<const std::byte> envelope)>;

  Session(const std::filesystem::path& module, std::chrono::milliseconds limit);
  // Stops a module that still runs. One that does not answer any more is left alone with all it uses: the
  // process must then end without waiting for it.
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  void Share(Catalogue catalogue);   // what the guest's requests are answered from
  void AnswerBy(Answerer answerer);  // instead of that

  void Start();  // returns after the guest's announcement
  Requests On();
  Requests Off();
  void Announce();  // asks the guest to announce itself and waits until it has
  Requests Command(const char* what, std::span<const std::byte> envelope);  // any, named for messages
  void Stop();

  bool stuck() const { return stuck_; }
  GateFacts Facts() { return gate_->Facts(); }
  Conversation& conversation() { return conversation_; }

 private:
  Reply Answer(std::span<const std::byte> envelope);
  void WaitIdle(const char* what);
  void WaitAnnounced();
  std::int32_t WithinLimit(const char* what, std::function<std::int32_t()> call);

  std::chrono::milliseconds limit_;
  Conversation conversation_;
  std::unique_ptr<Gate> gate_;
  std::unique_ptr<Module> module_;
  bool running_ = false;
  bool stuck_ = false;

  std::mutex mutex_;  // guards what follows: the module's thread uses it too
  Answerer answerer_;
  Requests requests_;
  std::condition_variable asked_;
};

}  // namespace host
