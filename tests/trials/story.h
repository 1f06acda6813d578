// The story that faults are put into, scene by scene: start, on, the catalogue changes, on again, off, stop.
// A scene knows the guest before it, what it asks of the module, and what a run without faults leads to.
#pragma once

#include <string>
#include <vector>

#include "trials/guest.h"

namespace trials {

struct Scene {
  enum class Kind { Start, Command, Stop };
  std::string name;
  Kind kind;
  host::Bytes command;               // of Kind::Command
  const host::Catalogue* catalogue;  // what the host shares then, and for the clean "on" after it
  GuestState before = {};
  Lines held = {};               // all that is there before, as host::Differences from nothing
  host::Snapshot expected = {};  // after the scene and a clean "on", without faults
};

class Story {
 public:
  // Runs the story once, without faults, and notes its scenes.
  Story(Guest& guest, const host::Catalogue& catalogue);

  const std::vector<Scene>& scenes() const { return scenes_; }
  const host::Snapshot& untouched() const { return untouched_; }
  // By names with the suffix: applications that the story drops or renames, and those without types.
  const Lines& gone() const { return gone_; }
  const Lines& typeless() const { return typeless_; }

  // Brings the guest and the module to where the scene begins.
  void Enter(const Scene& scene) const;
  // Asks of the module what the scene does, and returns when the worker rests. False: a stop had to be
  // helped.
  bool Play(const Scene& scene) const;

 private:
  Guest& guest_;
  const host::Catalogue first_, changed_;
  const host::Snapshot untouched_;
  Lines gone_, typeless_;
  std::vector<Scene> scenes_;
};

}  // namespace trials
