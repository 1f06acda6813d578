// The story that faults are put into, scene by scene: start, on, the catalogue changes, on again, off, stop.
// A scene knows the guest before it, what it asks of the module, and what a run without faults leads to.
#pragma once

#include <string>
#include <vector>

#include "trials/crew.h"
#include "trials/rig.h"
#include "trials/trials.h"

namespace trials {

struct Scene {
  enum class Kind { Start, Command, Stop };
  std::string name;
  Kind kind;
  host::Bytes command;               // of Kind::Command
  const host::Catalogue* catalogue;  // what the host shares then, and for the clean "on" after it
  GuestState before;
  host::Snapshot held;          // the same guest, as it is looked at
  host::Snapshot expectedOn;    // after the scene and a clean "on", without faults
  host::Snapshot expectedAnew;  // after an "off" and an "on" that follow
};

class Story {
 public:
  // Runs the story once, without faults, and notes its scenes.
  Story(Rig& rig, const Options& options);

  const std::vector<Scene>& scenes() const { return scenes_; }
  // Brings the guest and the module to where the scene begins.
  void Enter(const Scene& scene);
  // Asks of the module what the scene does, and returns when the worker rests. False: a stop had to be
  // helped.
  bool Play(const Scene& scene);
  // Returns when what was asked of the module is surely over; a worker that does not wait for a command is
  // stopped.
  void Rest();
  // Reports each launcher that lacks its identity, its version information or all of its icons. Two faults
  // can leave one, one in the making and one in the removal; a single one cannot.
  static void FailHalfMade(const std::string& cause, Report& report);
  // What must follow whatever `cause` did to the scene: clean commands bring the guest to where it would be
  // without it, and nothing is left open. Reports each thing that is otherwise, and counts what outlives the
  // next "on" as prescribed (see lasting.h).
  void Recover(const Scene& scene, const std::string& cause, Report& report);

 private:
  using Lines = std::vector<std::string>;
  Lines ClearAway();

  Rig& rig_;
  host::Catalogue first_, changed_;
  host::Snapshot untouched_;
  std::vector<Scene> scenes_;
};

// Calls `each` for every scene, in each process of a crew on a guest of its own.
using EachScene = void(Story&, const Scene&, const Options&, std::size_t job, Report&);
Tally InEachScene(const Options& options, EachScene* each);

}  // namespace trials
