// One fault a trial: a call of the platform or an allocation of the module, in each scene of the story.
#include <platform/control.h>

#include "trials/allocations.h"
#include "trials/scenes.h"

namespace trials {
namespace {

// Plays the scene with a fault put in by `arm` and taken out by `disarm`, which says what failed.
template <class Arm, class Disarm>
void Try(Story& story, const Scene& scene, bool once, Report& report, Arm arm, Disarm disarm) {
  story.Enter(scene);
  arm();
  const bool unaided = story.Play(scene);
  const std::string cause = disarm();
  story.Rest();
  if (once) Story::FailHalfMade(cause, report);
  // The stop does not look at the result of its message, and waits for the worker either way.
  if (!unaided && cause != "PostThreadMessageW") report.Fail("the stop does not return");
  if (!unaided) {
    report.Count("stops whose message was lost, and which waited for the worker to end by itself");
  }
  story.Recover(scene, cause, report);
}

std::vector<std::string> CallsOf(Story& story, const Scene& scene, Report& report) {
  story.Enter(scene);
  platform::ArmFaultPlan({});
  story.Play(scene);
  std::vector<std::string> calls = platform::DisarmFaultPlan();
  story.Recover(scene, "nothing", report);
  return calls;
}

void FailEachCall(Story& story, const Scene& scene, const Options& options, std::size_t job, Report& report) {
  const std::vector<std::string> calls = CallsOf(story, scene, report);
  if (job == 0) report.Count("calls in the story", calls.size());
  for (std::size_t n = 1; n <= calls.size(); ++n) {
    if (n / options.every % options.jobs != job || n % options.every != 0) continue;
    for (const bool repeat : {false, true}) {
      platform::FaultPlan plan;
      plan.action = platform::FaultPlan::Action::Fail;
      plan.call = n;
      plan.repeat = repeat;
      report.Trial(scene.name + ", call " + std::to_string(n) + " (" + calls[n - 1] + ") fails" +
                   (repeat ? " from then on" : ""));
      std::size_t failed = 0;
      std::string call;
      Try(
          story, scene, !repeat, report, [&] { platform::ArmFaultPlan(plan); },
          [&] {
            const std::vector<std::string> made = platform::DisarmFaultPlan();
            failed = platform::CallsFailed();
            if (n <= made.size()) call = made[n - 1];
            return failed == 0 ? "nothing" : call;
          });
      report.Count("calls failed", failed);
      report.Count(call.empty()  ? "stories that ended before the call"
                   : failed == 0 ? "stories whose call cannot fail: " + call
                   : repeat      ? "stories with a call that failed from then on"
                                 : "stories with a call that failed once");
    }
  }
}

void FailEachAllocation(Story& story, const Scene& scene, const Options& options, std::size_t job,
                        Report& report) {
  story.Enter(scene);
  FailAllocation(0);
  story.Play(scene);
  const std::size_t allocations = AllocationsSeen();
  story.Recover(scene, "nothing", report);
  if (job == 0) report.Count("allocations in the story", allocations);
  for (std::size_t n = 1; n <= allocations; ++n) {
    if (n / options.every % options.jobs != job || n % options.every != 0) continue;
    report.Trial(scene.name + ", allocation " + std::to_string(n) + " fails");
    bool failed = false;
    Try(
        story, scene, true, report, [&] { FailAllocation(n); },
        [&] {
          failed = AllocationsSeen() >= n;
          return "allocation";
        });
    if (failed) report.Count("stories with an allocation that failed");
  }
}

}  // namespace

Tally TryFaults(const Options& options) {
  return InEachScene(options, FailEachCall);
}

Tally TryAllocations(const Options& options) {
  return InEachScene(options, FailEachAllocation);
}

}  // namespace trials
