// A process plays a scene and dies at one of its calls; the next one finds the guest as that left it.
#include <platform/control.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>

#include "trials/scenes.h"

namespace trials {
namespace {

constexpr int died = 86;  // as the layer ends a process

void LoadGuest() {
  std::ifstream saved(platform::GuestRoot() / "registry.txt", std::ios::binary);
  platform::LoadRegistry({std::istreambuf_iterator<char>(saved), {}});
}

// Plays the scene in a process that ends at its n-th call. True when it had that many.
bool DieAt(Story& story, const Scene& scene, std::size_t n) {
  std::cout << std::flush;
  const pid_t process = fork();
  if (process < 0) throw std::runtime_error("no process for a child");
  if (process == 0) {
    story.Enter(scene);
    platform::FaultPlan plan;
    plan.action = platform::FaultPlan::Action::EndProcess;
    plan.call = n;
    plan.ending = [] { host::SaveGuest(); };
    platform::ArmFaultPlan(plan);
    story.Play(scene);
    platform::DisarmFaultPlan();
    host::SaveGuest();
    _exit(0);
  }
  int status = 0;
  waitpid(process, &status, 0);
  const int end = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  if (end != 0 && end != died) throw std::runtime_error("the process crashed");
  LoadGuest();
  return end == died;
}

void DieAtEachCall(Story& story, const Scene& scene, const Options& options, std::size_t job,
                   Report& report) {
  bool reached = true;
  for (std::size_t n = 1; reached; ++n) {
    if (n / options.every % options.jobs != job || n % options.every != 0) continue;
    report.Trial(scene.name + ", death at call " + std::to_string(n));
    reached = DieAt(story, scene, n);
    if (reached) report.Count("deaths");
    story.Recover(scene, "death", report);
  }
}

}  // namespace

Tally TryDeaths(const Options& options) {
  return InEachScene(options, DieAtEachCall);
}

}  // namespace trials
