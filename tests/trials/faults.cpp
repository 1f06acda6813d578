// One fault a trial, at each point of each scene of the story: a call of the platform that fails, once or
// with all later ones, an allocation of the module that fails, or the end of the process at a call. Clean
// commands must then bring the guest to where it would be without it.
#include <platform/control.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <iostream>
#include <iterator>
#include <set>
#include <stdexcept>

#include "host/verify.h"
#include "trials/allocations.h"
#include "trials/lasting.h"
#include "trials/story.h"
#include "trials/trials.h"

namespace trials {
namespace {

enum class Fault { Call, CallsFromThenOn, Allocation, Death };
constexpr const char* names[] = {"a call that failed once", "a call that failed from then on",
                                 "an allocation that failed", "a death"};

// What a scene came to with a fault in it.
struct Outcome {
  std::string cause = "nothing";  // the call that failed, "allocation" or "death"
  bool reached = true;            // the scene had that many calls or allocations
  bool unaided = true;            // a stop returned by itself
};

// ---- Faults --------------------------------------------------------------------------------------------

// The calls or allocations of a scene, by name.
Lines PointsOf(const Story& story, const Scene& scene, bool allocations) {
  story.Enter(scene);
  allocations ? FailAllocation(0) : platform::ArmFaultPlan({});
  story.Play(scene);
  return allocations ? Lines(AllocationsSeen(), "allocation") : platform::DisarmFaultPlan();
}

Outcome FailCall(const Story& story, const Scene& scene, std::size_t n, bool repeat, Report& report) {
  story.Enter(scene);
  platform::ArmFaultPlan({.action = platform::FaultPlan::Action::Fail, .call = n, .repeat = repeat});
  Outcome outcome{.unaided = story.Play(scene)};
  const Lines calls = platform::DisarmFaultPlan();
  outcome.reached = n <= calls.size();
  if (platform::CallsFailed() != 0) outcome.cause = calls.at(n - 1);
  report.Count("calls failed", platform::CallsFailed());
  if (outcome.reached && platform::CallsFailed() == 0)
    report.Count("stories whose call cannot fail: " + calls[n - 1]);
  return outcome;
}

Outcome FailAllocationOf(const Story& story, const Scene& scene, std::size_t n) {
  story.Enter(scene);
  FailAllocation(n);
  Outcome outcome{.unaided = story.Play(scene)};
  outcome.reached = AllocationsSeen() >= n;
  if (outcome.reached) outcome.cause = "allocation";
  return outcome;
}

// The scene is played in a process of its own; this one finds the guest as that has left it.
Outcome Die(const Story& story, const Scene& scene, std::size_t n) {
  constexpr int died = 86;  // as the layer ends a process
  std::cout << std::flush;
  const pid_t process = fork();
  if (process == 0) {
    story.Enter(scene);
    platform::ArmFaultPlan(
        {.action = platform::FaultPlan::Action::EndProcess, .call = n, .ending = [] { host::SaveGuest(); }});
    story.Play(scene);
    platform::DisarmFaultPlan();
    host::SaveGuest();
    _exit(0);
  }
  int status = 0;
  if (waitpid(process, &status, 0) < 0 || !WIFEXITED(status) ||
      (WEXITSTATUS(status) != 0 && WEXITSTATUS(status) != died)) {
    throw std::runtime_error("the process crashed");
  }
  std::ifstream saved(platform::GuestRoot() / "registry.txt", std::ios::binary);
  platform::LoadRegistry({std::istreambuf_iterator<char>(saved), {}});
  const bool reached = WEXITSTATUS(status) == died;
  return {reached ? "death" : "nothing", reached};
}

// ---- What must follow ----------------------------------------------------------------------------------

// No launcher may lack its identity, its version information or all of its icons. Two faults can leave such a
// one, one in the making and one in the removal, and so can a death; a single fault cannot.
void FailHalfMade(const std::string& cause, Report& report) {
  for (const auto& [path, launcher] : host::TakeSnapshot().launchers) {
    if (!launcher.bundleId.empty() && !launcher.name.empty() && !launcher.description.empty() &&
        !launcher.iconSizes.empty()) {
      continue;
    }
    if (cause == "MultiByteToWideChar") {
      report.Count("launchers with a name or an identifier that was not converted");
    } else {
      report.Fail("half-made: " + path);
    }
  }
}

// "Off" may leave nothing beyond the residue. True: what it left is an application's whose removal failed.
bool LeavesForGood(Guest& guest, const Story& story, Report& report) {
  bool forGood = false;
  guest.Off();
  for (const std::string& line : host::BeyondResidue(story.untouched(), host::TakeSnapshot())) {
    const bool known = IsLeftForGood(story, line);
    if (!known) report.Fail("after \"off\", " + line);
    forGood |= known;
  }
  return forGood;
}

// Clean commands bring the guest to where it would be without the fault, and nothing is left open. Reports
// each thing that is otherwise, and counts what outlives the next "on" as prescribed.
void Recover(Guest& guest, const Story& story, const Scene& scene, const std::string& cause, Report& report) {
  const auto differencesAfterOn = [&](const host::Snapshot& expected) {
    guest.On(*scene.catalogue);
    const host::Snapshot guestNow = host::TakeSnapshot();
    std::vector<Difference> all = Differences(expected.files, guestNow.files);
    std::ranges::move(Differences(expected.registry, guestNow.registry), std::back_inserter(all));
    return all;
  };
  std::vector<Difference> lasting = differencesAfterOn(scene.expectedOn);
  if (!lasting.empty()) {
    lasting = differencesAfterOn(scene.expectedOn);
    if (lasting.empty()) report.Count("second \"on\"s that were needed");
  }
  if (!lasting.empty() && cause == "CoInitialize") {
    // Such a worker makes no shortcut, and so no launcher, for as long as it runs.
    guest.Stop();
    guest.StartUp();
    lasting = differencesAfterOn(scene.expectedOn);
    report.Count("new starts that were needed, of a worker without COM");
  }
  std::set<std::string> kinds;
  for (const Difference& difference : lasting) {
    const char* kind = LastingKind(story, scene, cause, difference);
    if (!kind) report.Fail(difference.Text());
    if (kind) kinds.insert(kind);
  }
  for (const std::string& kind : kinds) report.Count("left until the next \"off\": " + kind);
  bool forGood = LeavesForGood(guest, story, report);
  if (!lasting.empty()) {
    for (const Difference& difference : differencesAfterOn(scene.expectedAnew)) {
      if (!IsResidue(difference) && !IsLeftForGood(story, difference.path))
        report.Fail("after \"off\" and \"on\", " + difference.Text());
    }
    forGood |= LeavesForGood(guest, story, report);
  }
  if (forGood) report.Count("left for good: entries of an application whose removal failed");
  // A start frees what an earlier worker could not.
  guest.Stop();
  guest.Start();
  guest.Stop();
  for (const std::string& line : guest.LeftOpen()) {
    if (line != "1 open: file") report.Fail(line);  // the log keeps its file
  }
}

void TryPoint(Guest& guest, const Story& story, const Scene& scene, Fault fault, std::size_t n,
              Report& report) {
  const Outcome outcome = fault == Fault::Death ? Die(story, scene, n)
                          : fault == Fault::Allocation
                              ? FailAllocationOf(story, scene, n)
                              : FailCall(story, scene, n, fault == Fault::CallsFromThenOn, report);
  if (fault != Fault::Death && !guest.Settle()) guest.Stop();
  if (fault == Fault::Call || fault == Fault::Allocation) FailHalfMade(outcome.cause, report);
  if (!outcome.unaided) {
    report.Count("stops whose message was lost, and which waited for the worker to end by itself");
    // The stop does not look at the result of its message, and waits for the worker either way.
    if (outcome.cause != "PostThreadMessageW") report.Fail("the stop does not return");
  }
  Recover(guest, story, scene, outcome.cause, report);
  if (!outcome.reached) report.Count("stories that ended before the fault");
  if (outcome.cause != "nothing") report.Count(std::string("stories with ") + names[static_cast<int>(fault)]);
}

Tally Try(const Options& options, const std::vector<Fault>& faults) {
  return RunCrew(options.jobs, [&](std::size_t job, Report& report) {
    report.Trial("the story without faults");
    Guest guest(options.folder / std::to_string(job));
    const Story story(guest, options.catalogue);
    for (const Scene& scene : story.scenes()) {
      const Lines points = PointsOf(story, scene, faults.front() == Fault::Allocation);
      Recover(guest, story, scene, "nothing", report);
      if (job == 0) report.Count("points of the story at which it happens", points.size());
      for (std::size_t n = 1; n <= points.size(); ++n) {
        if (!options.IsFor(job, n)) continue;
        for (const Fault fault : faults) {
          report.Trial(scene.name + ", number " + std::to_string(n) + " (" + points[n - 1] +
                       "): " + names[static_cast<int>(fault)]);
          TryPoint(guest, story, scene, fault, n, report);
        }
      }
    }
  });
}

}  // namespace

Tally TryFaults(const Options& options) {
  return Try(options, {Fault::Call, Fault::CallsFromThenOn});
}

Tally TryAllocations(const Options& options) {
  return Try(options, {Fault::Allocation});
}

Tally TryDeaths(const Options& options) {
  return Try(options, {Fault::Death});
}

}  // namespace trials
