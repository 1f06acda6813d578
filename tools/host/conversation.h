// What the host and the guest say to each other, told to listeners as it is said, and how to read it.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <nlohmann/json_fwd.hpp>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace host {

// A command is the host's, unasked; a request is the guest's, and every request has a reply.
enum class Direction { Command, Request, Reply };
const char* NameOf(Direction direction);  // "command", "request", "reply"

// "announce" (1), "sharing" (100), "list" (102), "icons" (103), "details" (104), otherwise the number.
std::string NameOfCode(std::uint32_t code);

struct Exchange {
  std::string step;         // what was under way
  double milliseconds = 0;  // since the conversation began
  Direction direction = Direction::Command;
  std::span<const std::byte> bytes;  // the whole envelope; the listener's while it is called
  std::uint32_t status = 0;          // the request's own, of a reply
};

// An envelope as it reads.
struct Message {
  std::uint32_t code = 0;
  std::uint32_t result = 0;
  std::vector<std::pair<std::string, std::string>> items;  // name and value; a bitmap by its measures
  std::string fault;  // why reading ended early; empty when all of it could be read
};
Message ReadMessage(Direction direction, std::span<const std::byte> envelope);

// {"step", "ms", "direction", "code", "size", "status", "result", "items": [[name, value], ...], "fault"};
// the last only where there is one. The bytes are left out; texts are as they came, so not always UTF-8.
nlohmann::json Described(const Exchange& exchange);

// May be told things on any thread; listeners are called one at a time, in the order in which they came.
class Conversation {
 public:
  using Listener = std::function<void(const Exchange&)>;

  void Listen(Listener listener);  // from now on, and for good
  void BeginStep(std::string step);
  void Hear(Direction direction, std::span<const std::byte> envelope, std::uint32_t status = 0);

 private:
  std::chrono::steady_clock::time_point began_ = std::chrono::steady_clock::now();
  std::mutex mutex_;  // guards what follows
  std::string step_;
  std::vector<Listener> listeners_;
};

}  // namespace host
