// A walk at random: starts, stops at every moment, and commands that come one by one, many at once, or while
// nobody listens. The device keeps a command until it is taken, and one that was taken runs to its end, so
// the guest that is at rest at last is what all commands in their order make of it.
#include <platform/control.h>

#include <chrono>
#include <deque>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "host/verify.h"
#include "trials/dice.h"
#include "trials/guest.h"
#include "trials/trials.h"

namespace trials {
namespace {

constexpr std::size_t allSteps = 60'000;
constexpr std::size_t mostAtOnce = 60;  // commands

class Walk {
 public:
  Walk(const Options& options, std::size_t job, Report& report)
      : report_(report),
        dice_(options.seed, job),
        shared_{FirstOf(options.catalogue, 3), ChangedCatalogue(FirstOf(options.catalogue, 3))},
        guest_(options.folder / ("walk-" + std::to_string(job))),
        before_(host::TakeSnapshot()),
        model_(before_, host::LookAround()) {
    guest_.Serve([this](const host::Question& question, std::span<const std::byte> envelope) {
      return Answer(question, envelope);
    });
  }

  void Step() {
    static constexpr void (Walk::*steps[])() = {&Walk::Start,       &Walk::Start,        &Walk::Stop,
                                                &Walk::StopInside,  &Walk::StopInside,   &Walk::Notify,
                                                &Walk::StartInVain, &Walk::SendAtRandom, &Walk::SendAtRandom,
                                                &Walk::SendMany,    &Walk::Rest};
    (this->*dice_.Of(steps))();
    if (dice_.Chance(50)) std::this_thread::sleep_for(std::chrono::microseconds(dice_.Below(400)));
  }

  // Nothing may be left in the guest.
  void End() {
    SendOff();
    Rest();
    Stop();
    RequireNone("after \"off\"", host::BeyondResidue(before_, host::TakeSnapshot()));
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
    return host::AnswerCommand(*listed_, envelope);
  }

  void Send(const host::Bytes& command) {
    guest_.gate().Push(command);
    report_.Count("commands");
  }

  void SendOn() {
    const host::Catalogue& catalogue = dice_.Of(shared_);
    for (const host::Application& app : catalogue.applications())
      built_ += model_.expected().launchers.contains(LauncherOf(app.name)) ? 0 : 1;
    model_.On(catalogue);
    ++ons_;
    mutex_.lock();
    waiting_.push_back(&catalogue);
    mutex_.unlock();
    Send(host::SharingCommand(true));
  }

  void SendOff() {
    model_.Off();
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

  // Each finds its work done the second time.
  void Notify() {
    announcements_ += runs_ ? 0 : 1;
    runs_ = true;
    for (const std::uint32_t code : {5u, 5u, 7u, 6u, 6u, 0u}) guest_.module().Notify(code);
    Stop();
  }

  void StartInVain() {
    if (runs_) return;
    guest_.gate().SetPresent(false);
    const bool started = guest_.Start();
    guest_.gate().SetPresent(true);
    if (started) throw std::runtime_error("the module starts without its device");
    report_.Count("starts without a device");
  }

  void Rest() {
    if (!runs_) {
      guest_.StartUp();
      Start();  // which finds the worker there
    }
    guest_.AwaitRest();
    if (guest_.asked(102) != ons_) throw std::runtime_error("not every \"on\" asked for one list");
    // A launcher is built once, whatever is repeated.
    if (guest_.asked(103) != built_) throw std::runtime_error("icons were asked for more often than built");
    // The guest announces itself when it has nothing to do: once for the start, and at most once a request.
    if (guest_.asked(100) > announcements_) throw std::runtime_error("too many announcements");
    RequireNone("at rest", model_.Compare(host::TakeSnapshot()));
    report_.Count("looks at the guest at rest");
  }

  Report& report_;
  Dice dice_;
  const host::Catalogue shared_[2];
  Guest guest_;
  const host::Snapshot before_;
  host::GuestModel model_;
  bool runs_ = false;
  std::uint64_t ons_ = 0, built_ = 0, announcements_ = 0;  // that the guest may make

  std::atomic<std::size_t> holdAt_ = 0;  // questions until one is held
  std::atomic<bool> held_ = false;
  std::chrono::microseconds pause_{};
  std::mutex mutex_;
  std::deque<const host::Catalogue*> waiting_;
  const host::Catalogue* listed_ = &shared_[0];
};

}  // namespace

Tally TryWalk(const Options& options) {
  return RunCrew(options.jobs, [&](std::size_t job, Report& report) {
    Walk walk(options, job, report);
    for (std::size_t step = job; step < allSteps / options.every; step += options.jobs) {
      report.Trial("seed " + std::to_string(options.seed) + ", job " + std::to_string(job) + ", step " +
                   std::to_string(step));
      walk.Step();
    }
    walk.End();
  });
}

}  // namespace trials
