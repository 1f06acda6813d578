// The recorded host. It answers a request with what was answered then to the same bytes; a request that was
// not made then, and one that is not made now, are differences.
#include <algorithm>
#include <mutex>
#include <ostream>

#include "guest/tree.h"
#include "host/session.h"
#include "host/story.h"
#include "host/trace.h"

namespace host {
namespace {

std::string Shown(const Bytes& request) {
  const Message message = ReadMessage(Direction::Request, request);
  std::string text = NameOfCode(message.code);
  for (const auto& [name, value] : message.items) text += ", " + name + " " + value;
  return text;
}

class Player {
 public:
  Player(std::ostream& out, const Trace& trace, const SessionOptions& options)
      : out_(out), trace_(trace), session_(options.module, options.limit) {
    session_.AnswerBy([this](std::span<const std::byte> envelope) {
      return Answer({envelope.begin(), envelope.end()});
    });
  }

  bool Play() {
    Expect(0);
    session_.Start();
    for (std::size_t i = 0; i < trace_.lines.size(); ++i) {
      const TraceLine& line = trace_.lines[i];
      if (HoldsGuest(line)) Compare(line);
      if (!Is(line, Direction::Command)) continue;
      Expect(i + 1);
      if (line.bytes == AnnounceCommand()) {
        session_.Announce();
      } else {
        session_.Command("a recorded command", line.bytes);
      }
    }
    session_.Stop();
    return same_;
  }

 private:
  // The requests with their replies from this line on, up to the next rest.
  void Expect(std::size_t from) {
    std::lock_guard lock(mutex_);
    expected_.clear();
    for (std::size_t i = from; i + 1 < trace_.lines.size() && !HoldsGuest(trace_.lines[i]); ++i) {
      if (Is(trace_.lines[i], Direction::Request)) expected_.push_back(i);
    }
  }

  Reply Answer(const Bytes& asked) {
    std::lock_guard lock(mutex_);
    const auto found =
        std::ranges::find_if(expected_, [&](std::size_t i) { return trace_.lines[i].bytes == asked; });
    if (found == expected_.end()) {
      odd_.push_back("the guest asks what it did not ask then: " + Shown(asked));
      return {.bytes =
                  Envelope(ReadQuestion(asked).code, {}, static_cast<std::uint32_t>(Result::BadRequest))};
    }
    const TraceLine& answer = trace_.lines[*found + 1];
    expected_.erase(found);
    return {.bytes = answer.bytes, .status = answer.fields.at("status")};
  }

  void Compare(const TraceLine& line) {
    std::lock_guard lock(mutex_);
    for (const std::size_t i : expected_) {
      odd_.push_back("the guest does not ask what it asked then: " + Shown(trace_.lines[i].bytes));
    }
    expected_.clear();
    out_ << "* " << line.fields.at("step").get<std::string>() << "\n";
    for (const std::string& each : odd_) out_ << "  " << each << "\n";
    const bool differs = PrintDifference(out_, GuestOf(line), GuestAtRest());
    if (!differs && odd_.empty()) out_ << "  the same\n";
    same_ &= !differs && odd_.empty();
    odd_.clear();
  }

  std::ostream& out_;
  const Trace& trace_;
  bool same_ = true;
  std::mutex mutex_;  // guards what follows: the module's thread uses it too
  std::vector<std::size_t> expected_;
  std::vector<std::string> odd_;
  Session session_;  // last: it ends before what it uses does
};

}  // namespace

bool Replay(std::ostream& out, const Trace& trace, const SessionOptions& options) {
  return Player(out, trace, options).Play();
}

}  // namespace host
