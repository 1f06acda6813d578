// One fault a trial, at each point of each scene of the story: a call of the platform that fails, once or
// with all later ones, an allocation of the module that fails, or the end of the process at a call. Clean
// commands must then bring the guest to where it would be without it.
#include <platform/control.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
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
  bool isReached = true;          // the scene had that many calls or allocations
  bool isUnaided = true;          // a stop returned by itself
};

// Plays the scene with the n-th call or allocation failing (0: none); what passed, by name.
Lines Play(const Story& story, const Scene& scene, Fault fault, std::size_t n, Outcome& outcome) {
  const bool isAllocation = fault == Fault::Allocation;
  story.Enter(scene);
  isAllocation ? FailAllocation(n)
               : platform::ArmFaultPlan({.action = platform::FaultPlan::Action::Fail,
                                         .call = n,
                                         .repeat = fault == Fault::CallsFromThenOn});
  outcome.isUnaided = story.Play(scene);
  Lines passed = isAllocation ? Lines(AllocationsSeen(), "allocation") : platform::DisarmFaultPlan();
  outcome.isReached = n <= passed.size();
  return passed;
}

Outcome PlayFailing(const Story& story, const Scene& scene, Fault fault, std::size_t n, Report& report) {
  Outcome outcome;
  const Lines passed = Play(story, scene, fault, n, outcome);
  const bool failed = fault == Fault::Allocation ? outcome.isReached : platform::CallsFailed() != 0;
  if (failed) outcome.cause = passed.at(n - 1);
  if (fault != Fault::Allocation) report.Count("calls failed", platform::CallsFailed());
  if (outcome.isReached && !failed) report.Count("stories whose call cannot fail: " + passed[n - 1]);
  return outcome;
}

// A thread that has signalled its end may still be in the hands of the run-time library, whose locks a child
// of that moment would never see released.
void AwaitOtherThreads() {
  const auto threads = [] {
    return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
  };
  while (threads() > 1) usleep(1000);
}

// The scene is played in a process of its own; this one finds the guest as that has left it.
Outcome PlayDying(const Story& story, const Scene& scene, std::size_t n) {
  constexpr int died = 86;  // as the layer ends a process
  std::cout << std::flush;
  AwaitOtherThreads();
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
  const bool isReached = WEXITSTATUS(status) == died;
  return {isReached ? "death" : "nothing", isReached};
}

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

// Clean commands after a scene, which bring the guest to where it would be without the fault.
class Recovery {
 public:
  Recovery(Guest& guest, const Story& story, const Scene& scene, Report& report)
      : guest_(guest), story_(story), scene_(scene), report_(report) {}

  // Reports each thing that is otherwise, and counts what outlives the next "on" as prescribed.
  void Check(const std::string& cause) {
    CheckOn(cause);
    CheckOff();
    if (leavesForGood_) report_.Count("left for good: entries of an application whose removal failed");
    // A start frees what an earlier worker could not.
    guest_.Stop();
    guest_.Start();
    guest_.Stop();
    for (const std::string& line : guest_.LeftOpen()) {
      if (line != "1 open: file") report_.Fail(line);  // the log keeps its file
    }
  }

 private:
  Lines DifferencesAfterOn() {
    guest_.On(*scene_.catalogue);
    return host::Differences(scene_.expected, host::TakeSnapshot());
  }

  void CheckOn(const std::string& cause) {
    if (DifferencesAfterOn().empty()) return;
    Lines lasting = DifferencesAfterOn();
    if (lasting.empty()) report_.Count("second \"on\"s that were needed");
    if (!lasting.empty() && cause == "CoInitialize") {
      // Such a worker makes no shortcut, and so no launcher, for as long as it runs.
      guest_.Stop();
      guest_.StartUp();
      lasting = DifferencesAfterOn();
      report_.Count("new starts that were needed, of a worker without COM");
    }
    std::set<std::string> kinds;
    for (const std::string& difference : lasting) {
      const char* kind = LastingKind(story_, scene_, cause, difference);
      kind ? static_cast<void>(kinds.insert(kind)) : report_.Fail(difference);
    }
    for (const std::string& kind : kinds) report_.Count("left until the next \"off\": " + kind);
  }

  // "Off" may leave nothing beyond the residue, but of an application whose removal failed.
  void CheckOff() {
    guest_.Off();
    for (const std::string& line : host::BeyondResidue(story_.untouched(), host::TakeSnapshot())) {
      const bool isKnown = IsLeftForGood(story_, line);
      if (!isKnown) report_.Fail("after \"off\", " + line);
      leavesForGood_ |= isKnown;
    }
  }

  Guest& guest_;
  const Story& story_;
  const Scene& scene_;
  Report& report_;
  bool leavesForGood_ = false;
};

void TryPoint(Guest& guest, const Story& story, const Scene& scene, Fault fault, std::size_t n,
              Report& report) {
  const Outcome outcome =
      fault == Fault::Death ? PlayDying(story, scene, n) : PlayFailing(story, scene, fault, n, report);
  if (fault != Fault::Death && !guest.Settle()) guest.Stop();
  if (fault == Fault::Call || fault == Fault::Allocation) FailHalfMade(outcome.cause, report);
  if (!outcome.isUnaided) {
    report.Count("stops whose message was lost, and which waited for the worker to end by itself");
    // The stop does not look at the result of its message, and waits for the worker either way.
    if (outcome.cause != "PostThreadMessageW") report.Fail("the stop does not return");
  }
  Recovery(guest, story, scene, report).Check(outcome.cause);
  if (!outcome.isReached) report.Count("stories that ended before the fault");
  if (outcome.cause != "nothing") report.Count(std::string("stories with ") + names[static_cast<int>(fault)]);
}

Tally Try(const Options& options, const std::vector<Fault>& faults) {
  return RunCrew(options.folder, options.jobs, [&](std::size_t job, Report& report) {
    report.Trial("the story without faults");
    Guest guest(options.folder / std::to_string(job));
    const Story story(guest, options.catalogue);
    for (const Scene& scene : story.scenes()) {
      Outcome outcome;
      const Lines points = Play(story, scene, faults.front(), 0, outcome);
      Recovery(guest, story, scene, report).Check("nothing");
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
