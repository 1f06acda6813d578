// Random walks: in a guest that is full of other programs' entries, starts, stops at every moment, and
// commands that come one by one, many at once, or while nobody listens, each "on" with a catalogue of its
// own. The device keeps a command until it is taken, and one that was taken runs to its end, so the guest
// that is at rest at last is what all commands in their order make of it.
#include <chrono>
#include <deque>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <thread>

#include "host/verify.h"
#include "trials/dice.h"
#include "trials/guest.h"
#include "trials/trials.h"

namespace trials {
namespace {

constexpr std::size_t walks = 400, steps = 60, mostAtOnce = 30;  // commands

class Walk {
 public:
  Walk(const Options& options, std::size_t number, const std::filesystem::path& driveC, Report& report)
      : report_(report), dice_(options.seed, number), guest_(driveC) {
    AddForeignEntries(dice_);
    before_ = host::TakeSnapshot();
    elsewhere_ = Elsewhere();
    model_.emplace(before_, host::LookAround());
    guest_.Serve([this](const host::Question& question, std::span<const std::byte> envelope) {
      return Answer(question, envelope);
    });
  }

  void Go() {
    static constexpr void (Walk::*all[])() = {&Walk::Start,        &Walk::Start,      &Walk::Stop,
                                              &Walk::StopInside,   &Walk::StopInside, &Walk::SendAtRandom,
                                              &Walk::SendAtRandom, &Walk::SendMany,   &Walk::Rest};
    for (std::size_t step = 0; step < steps; ++step) {
      (this->*dice_.Of(all))();
      if (dice_.Chance(50)) std::this_thread::sleep_for(std::chrono::microseconds(dice_.Below(400)));
    }
    // Nothing may be left in the guest.
    SendOff();
    Rest();
    Stop();
    RequireNone("after \"off\", beyond the residue", host::BeyondResidue(before_, host::TakeSnapshot()));
    RequireNone("after \"off\", elsewhere", host::Differences(elsewhere_, Elsewhere()));
  }

 private:
  // ---- The host's side -------------------------------------------------------------------------------

  // Each "on" that was sent has a catalogue waiting, and asks for one list.
  host::Reply Answer(const host::Question& question, std::span<const std::byte> envelope) {
    if (holdAt_ != 0 && --holdAt_ == 0) {
      report_.Count(question.code == 100 ? "stops in the announcement" : "stops in a command");
      held_ = true;
      std::this_thread::sleep_for(pause_);  // the stop arrives now
    }
    const std::lock_guard lock(mutex_);
    if (question.code == 102 && !waiting_.empty()) {
      listed_ = waiting_.front();
      waiting_.pop_front();
    }
    return host::AnswerCommand(listed_, envelope);
  }

  void Send(const host::Bytes& command) {
    guest_.gate().Push(command);
    report_.Count("commands");
  }

  void SendOn() {
    if (dice_.Chance(50)) catalogue_ = RandomCatalogue(dice_);
    model_->On(catalogue_);
    ++ons_;
    {
      const std::lock_guard lock(mutex_);
      waiting_.push_back(catalogue_);
    }
    Send(host::SharingCommand(true));
    report_.Count("applications shared", catalogue_.applications().size());
  }

  void SendOff() {
    model_->Off();
    Send(host::SharingCommand(false));
  }

  void SendAtRandom() {
    const std::size_t which = dice_.Below(8);
    if (which == 0) ++announcements_;
    if (which == 0) Send(host::AnnounceCommand());
    if (which == 1) Send(host::Envelope(102));  // which the guest sends, but never receives
    if (which == 2) Send(host::Envelope(100));  // without the byte that would say on or off
    if (which == 3 || which == 4) SendOff();
    if (which > 4) SendOn();
  }

  void SendMany() {
    for (std::size_t left = dice_.Below(mostAtOnce); left > 0; --left) SendAtRandom();
  }

  // ---- The guest's side ------------------------------------------------------------------------------

  void Start() {
    if (!guest_.Start()) throw std::runtime_error("the module does not start");
    announcements_ += runs_ ? 0 : 1;
    runs_ = true;
  }

  void Stop() {
    guest_.StopCleanly();
    report_.Count("stops", runs_ ? 1 : 0);
    runs_ = false;
  }

  // While the guest waits for the answer to a question, if it asks that many.
  void StopInside() {
    pause_ = std::chrono::microseconds(dice_.Below(600));
    held_ = false;
    holdAt_ = 1 + dice_.Below(8);
    if (dice_.Chance(50)) SendOn();
    Start();
    while (!held_ && !guest_.gate().WaitIdle(std::chrono::milliseconds(0))) std::this_thread::yield();
    Stop();
    holdAt_ = 0;
  }

  void Rest() {
    if (!runs_) {
      guest_.StartUp();
      Start();  // which finds the worker there
    }
    guest_.AwaitRest();
    if (guest_.asked(102) != ons_) throw std::runtime_error("not every \"on\" asked for one list");
    // The guest announces itself when it has nothing to do: once for the start, and at most once a request.
    if (guest_.asked(100) > announcements_) throw std::runtime_error("too many announcements");
    RequireNone("at rest", model_->Compare(host::TakeSnapshot()));
    report_.Count("looks at the guest at rest");
  }

  Report& report_;
  Dice dice_;
  Guest guest_;
  host::Snapshot before_;
  host::Snapshot elsewhere_;
  std::optional<host::GuestModel> model_;
  host::Catalogue catalogue_;
  bool runs_ = false;
  std::uint64_t ons_ = 0, announcements_ = 0;  // that the guest may make

  std::atomic<std::size_t> holdAt_ = 0;  // questions until one is held
  std::atomic<bool> held_ = false;
  std::chrono::microseconds pause_{};
  std::mutex mutex_;  // guards what follows: the module's thread uses it too
  std::deque<host::Catalogue> waiting_;
  host::Catalogue listed_;
};

}  // namespace

Tally TryWalk(const Options& options) {
  return RunCrew(options.folder, options.jobs, [&](std::size_t job, Report& report) {
    const std::filesystem::path driveC = options.folder / ("walk-" + std::to_string(job));
    for (std::size_t number = 0; number < walks; ++number) {
      if (!options.IsFor(job, number)) continue;
      report.Try("seed " + std::to_string(options.seed) + ", walk " + std::to_string(number),
                 [&] { Walk(options, number, driveC, report).Go(); });
      report.Count("walks");
    }
  });
}

}  // namespace trials
