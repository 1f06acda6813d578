// Starts and stops at every moment.
#include "host/verify.h"
#include "trials/dice.h"
#include "trials/room.h"

namespace trials {
namespace {

constexpr std::size_t allStarts = 10'000;

// Many starts and stops of one guest, each with one way of being hasty.
class Starter {
 public:
  Starter(Room& room, const host::Catalogue& catalogue, Report& report, Dice& dice)
      : room_(room),
        catalogue_(catalogue),
        report_(report),
        dice_(dice),
        model_(host::TakeSnapshot(), host::LookAround()) {
    ShareQuietly();
  }

  void Once() {
    static constexpr void (Starter::*ways[])() = {
        &Starter::StopAtRest,         &Starter::StopAtOnce,
        &Starter::StopSoon,           &Starter::Twice,
        &Starter::NoDevice,           &Starter::CommandWaits,
        &Starter::StopInAnnouncement, &Starter::StopInCommand,
        &Starter::StopAfterCommand,
    };
    (this->*dice_.Of(ways))();
    StopAndCount(room_.rig);
    report_.Count("starts and stops");
  }

 private:
  void ShareQuietly() {
    room_.onQuestion = [this](const host::Question&) -> const host::Catalogue& { return catalogue_; };
  }

  void Pause() { std::this_thread::sleep_for(std::chrono::microseconds(dice_.Below(400))); }

  // The command's name, after it has been sent: on and off in turn.
  void SendNext() {
    on_ = !on_;
    room_.rig.Send(host::SharingCommand(on_));
    on_ ? model_.On(catalogue_) : model_.Off();
  }
  void CheckGuest(const char* when) {
    RequireNone(when, model_.Compare(host::TakeSnapshot()));
    report_.Count("commands carried out beside a start or a stop");
  }

  void StopAtRest() {
    const std::uint64_t before = room_.asked(100);
    room_.Start();
    room_.Rest();
    room_.Announced(before);
  }

  void StopAtOnce() { room_.Start(); }

  void StopSoon() {
    room_.Start();
    Pause();
  }

  // Through the notifications, each of which finds its work done the second time.
  void Twice() {
    for (const std::uint32_t code : {5u, 5u, 7u}) room_.rig.module().Notify(code);
    room_.Rest();
    if (dice_.Chance(50)) Pause();
    for (const std::uint32_t code : {6u, 6u, 0u}) room_.rig.module().Notify(code);
  }

  void NoDevice() {
    room_.rig.gate().SetPresent(false);
    const bool started = room_.rig.module().Start() == 0;
    room_.rig.gate().SetPresent(true);
    if (started) throw std::runtime_error("the module starts without its device");
  }

  void CommandWaits() {
    SendNext();
    room_.Start();
    room_.Rest();
    CheckGuest("a command from before the start");
  }

  // Stops the module from here while the module's thread waits for the answer to its `wanted`-th question.
  void StopInside(std::size_t wanted, std::uint32_t code, bool withCommand) {
    std::atomic<std::size_t> seen = 0;
    std::atomic<bool> inside = false;
    const auto pause = std::chrono::microseconds(dice_.Below(600));
    room_.onQuestion = [&](const host::Question& question) -> const host::Catalogue& {
      if ((code == 0 ? question.code != 100 : question.code == code) && ++seen == wanted) {
        inside = true;
        std::this_thread::sleep_for(pause);  // the stop arrives now
      }
      return catalogue_;
    };
    room_.Start();
    if (withCommand) SendNext();
    const auto end = std::chrono::steady_clock::now() + Room::limit;
    while (!inside && std::chrono::steady_clock::now() < end) std::this_thread::yield();
    room_.rig.module().Stop();
    ShareQuietly();
    if (!inside) throw std::runtime_error("the guest did not ask what it was to be stopped at");
  }

  void StopInAnnouncement() {
    StopInside(1, 100, false);
    report_.Count("stops in the announcement");
  }

  // An "on" asks one list and, when it follows an "off", two questions an application.
  void StopInCommand() {
    if (on_) return StopAfterCommand();
    StopInside(1 + dice_.Below(1 + 2 * catalogue_.applications().size()), 0, true);
    CheckGuest("a command during which the module was stopped");
    report_.Count("stops in a command");
  }

  // The device keeps a command that was not taken; one that was has run to its end.
  void StopAfterCommand() {
    room_.Start();
    if (dice_.Chance(50)) room_.Rest();
    const std::uint64_t lists = room_.asked(102);
    SendNext();
    if (dice_.Chance(70)) Pause();
    room_.rig.module().Stop();
    room_.Start();
    room_.Rest();
    if (room_.asked(102) - lists != (on_ ? 1u : 0u))
      throw std::runtime_error("a command ran twice or not at all");
    CheckGuest("a command before a stop");
  }

  Room& room_;
  const host::Catalogue& catalogue_;
  Report& report_;
  Dice& dice_;
  host::GuestModel model_;
  bool on_ = false;
};

}  // namespace

void StartAndStop(std::size_t job, Report& report, const Options& options) {
  const host::Catalogue catalogue = FirstOf(options.catalogue, 2);
  Room room(options.folder / ("starts-" + std::to_string(job)));
  const host::Snapshot before = host::TakeSnapshot();
  Dice dice(options.seed, job);
  Starter starter(room, catalogue, report, dice);
  for (std::size_t start = job; start < allStarts / options.every; start += options.jobs) {
    report.Trial("start " + std::to_string(start) + " of job " + std::to_string(job) + ", seed " +
                 std::to_string(options.seed));
    starter.Once();
  }
  room.Start();
  End(room, before);
}

}  // namespace trials
