// Starts and stops, and commands without a pause.
#include "host/verify.h"
#include "host/wire.h"
#include "trials/room.h"

namespace trials {
namespace {

using namespace std::chrono_literals;

constexpr std::size_t allOns = 1'000;
constexpr auto fullTime = 60s;  // of commands as fast as they are taken

// ---- Commands without a pause --------------------------------------------------------------------------

// A code that the guest sends but never receives, and a command without the byte that would say on or off.
host::Bytes UnknownCommand() {
  host::Bytes command = host::SharingCommand(true);
  command[0] = std::byte{102};
  return command;
}
host::Bytes EmptyCommand() {
  host::Bytes command = host::SharingCommand(true);
  command.resize(20);
  command[16] = std::byte{0};
  return command;
}

void KeepBusy(std::size_t job, Report& report, const Options& options) {
  const host::Bytes on = host::SharingCommand(true), off = host::SharingCommand(false),
                    announce = host::AnnounceCommand();
  const host::Bytes cycle[] = {on, announce, on, UnknownCommand(), EmptyCommand(), off, announce, on, on};
  const host::Catalogue one = FirstOf(options.catalogue, 3), other = ChangedCatalogue(one);
  const std::array shared{&one, &other, &other, &one};  // by the cycle's "on" commands
  Room room(options.folder / ("busy-" + std::to_string(job)));
  std::atomic<std::size_t> lists = 0;
  std::atomic<const host::Catalogue*> listed = &one;
  room.onQuestion = [&](const host::Question& question) -> const host::Catalogue& {
    if (question.code == 102) listed = shared[lists++ % shared.size()];
    return *listed;
  };
  const host::Snapshot before = host::TakeSnapshot();
  host::GuestModel model(before, host::LookAround());

  report.Trial("commands without a pause, job " + std::to_string(job));
  room.Start();
  std::uint64_t cycles = 0, sent = 0;
  const auto start = std::chrono::steady_clock::now();
  while (std::chrono::steady_clock::now() - start < fullTime / options.every) {
    if (cycles % 100 == 0) report.Trial("commands without a pause, cycle " + std::to_string(cycles));
    for (const host::Bytes& command : cycle) {
      room.rig.Send(command);
      ++sent;
    }
    ++cycles;
    // A few dozen are always waiting.
    while (sent > room.rig.gate().Facts().receives + 30) std::this_thread::sleep_for(100us);
  }
  room.Rest();
  if (room.asked(102) != cycles * shared.size())
    throw std::runtime_error("not every \"on\" asked for one list");
  // The guest announces itself when it has nothing to do: once for the start, and at most once a request.
  room.Announced(0);
  if (room.asked(100) > 2 * cycles + 1) throw std::runtime_error("too many announcements");
  // A cycle leaves the same guest each time but for the first ones, whose residue the next find.
  host::Snapshot settled;
  for (std::uint64_t replayed = 0; replayed < cycles; ++replayed) {
    model.On(one), model.On(other), model.Off(), model.On(other), model.On(one);
    if (model.expected().registry == settled.registry && model.expected().files == settled.files) break;
    settled = model.expected();
  }
  RequireNone("commands without a pause", model.Compare(host::TakeSnapshot()));
  End(room, before);
  report.Count("commands without a pause", sent);
}

// ---- One command again and again -----------------------------------------------------------------------

void RepeatOn(Report& report, const Options& options) {
  constexpr std::size_t batch = 50;
  Room room(options.folder / "ons");
  room.onQuestion = [&](const host::Question&) -> const host::Catalogue& { return options.catalogue; };
  const host::Snapshot before = host::TakeSnapshot();
  host::GuestModel model(before, host::LookAround());
  room.Start();
  const std::size_t ons = allOns / options.every;
  for (std::size_t sent = 0; sent < ons; ++sent) {
    if (sent % batch == 0) {
      room.Rest();
      report.Trial("\"on\" number " + std::to_string(sent) + " in a row");
    }
    room.rig.Send(host::SharingCommand(true));
  }
  room.Rest();
  if (room.asked(102) != ons) throw std::runtime_error("not every \"on\" asked for one list");
  // A launcher is built once, whatever is repeated.
  if (room.asked(103) != options.catalogue.applications().size()) {
    throw std::runtime_error("icons were asked for " + std::to_string(room.asked(103)) + " times");
  }
  model.On(options.catalogue);
  RequireNone("\"on\" repeated", model.Compare(host::TakeSnapshot()));
  End(room, before);
  report.Count("\"on\" commands in a row", ons);
}

}  // namespace

Tally TryLoad(const Options& options) {
  Tally sum;
  Add(sum,
      RunCrew(options.jobs, [&](std::size_t job, Report& report) { StartAndStop(job, report, options); }));
  Add(sum, RunCrew(options.jobs, [&](std::size_t job, Report& report) { KeepBusy(job, report, options); }));
  Add(sum, RunCrew(1, [&](std::size_t, Report& report) { RepeatOn(report, options); }));
  return sum;
}

}  // namespace trials
