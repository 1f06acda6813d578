// A guest under load, whose host counts what it is asked and can do something before it answers.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <stdexcept>
#include <thread>

#include "host/guest_view.h"
#include "trials/guest_room.h"
#include "trials/trials.h"

namespace trials {

// A guest with the module in it, and a host whose answers are counted and can do something first.
class Room {
 public:
  static constexpr auto limit = std::chrono::seconds(50);  // for the guest to be at rest

  explicit Room(const std::filesystem::path& driveC) : rig(driveC) {
    rig.gate().Serve([this](std::span<const std::byte> envelope) {
      const host::Question question = host::ReadQuestion(envelope);
      ++asked_[question.code % asked_.size()];
      return host::AnswerCommand(onQuestion(question), envelope);
    });
  }
  Room(const Room&) = delete;
  Room& operator=(const Room&) = delete;

  // On the module's thread; returns what is shared at that moment. Changed while the module does not run.
  std::function<const host::Catalogue&(const host::Question&)> onQuestion;

  std::uint64_t asked(std::uint32_t code) const { return asked_[code % asked_.size()]; }

  void Start() {
    if (rig.module().Start() != 0) throw std::runtime_error("the module does not start");
  }
  void Rest() {
    if (!rig.gate().WaitIdle(limit)) throw std::runtime_error("the guest does not come to rest");
  }
  void Announced(std::uint64_t before) const {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (asked(100) == before) {
      if (std::chrono::steady_clock::now() > end)
        throw std::runtime_error("the guest does not announce itself");
      std::this_thread::yield();
    }
  }

  Rig rig;

 private:
  std::array<std::atomic<std::uint64_t>, 8> asked_{};  // by code, whose remainders differ
};

// What every load ends with: nothing left in the guest or open.
inline void End(Room& room, const host::Snapshot& before) {
  room.rig.Send(host::SharingCommand(false));
  room.Rest();
  StopAndCount(room.rig);
  RequireNone("after off", host::BeyondResidue(before, host::TakeSnapshot()));
}

// The first applications, with one icon each.
inline host::Catalogue FirstOf(const host::Catalogue& catalogue, std::size_t count) {
  host::Catalogue some;
  for (host::Application app : catalogue.applications()) {
    if (some.applications().size() == count) break;
    app.icons.resize(1);
    some.Add(std::move(app));
  }
  return some;
}

// One job's share of the starts and stops.
void StartAndStop(std::size_t job, Report& report, const Options& options);

}  // namespace trials
