// How a scene is noted, entered and played.
#include "trials/story.h"

#include "guest/places.h"
#include "host/verify.h"

namespace trials {

Story::Story(Guest& guest, const host::Catalogue& catalogue)
    : guest_(guest),
      first_(catalogue),
      changed_(ChangedCatalogue(catalogue)),
      untouched_(host::TakeSnapshot()) {
  for (const host::Application& app : first_.applications()) {
    if (!changed_.Find(app.name)) gone_.push_back(app.name + host::launcherSuffix);
    if (app.documentTypes.empty()) typeless_.push_back(app.name + host::launcherSuffix);
  }
  using enum Scene::Kind;
  const host::Bytes on = host::SharingCommand(true), off = host::SharingCommand(false);
  scenes_ = {{"start", Start, {}, &first_},      {"on", Command, on, &first_},
             {"change", Command, on, &changed_}, {"again", Command, on, &changed_},
             {"off", Command, off, &changed_},   {"stop", Stop, {}, &changed_}};
  for (Scene& scene : scenes_) {
    scene.before = SaveGuestState();
    scene.held = host::Differences({}, host::TakeSnapshot());
    Enter(scene);
    Play(scene);
    const GuestState after = SaveGuestState();
    guest_.On(*scene.catalogue);
    scene.expected = host::TakeSnapshot();
    guest_.Stop();
    RestoreGuestState(after);
  }
}

void Story::Enter(const Scene& scene) const {
  RestoreGuestState(scene.before);
  guest_.Share(*scene.catalogue);
  if (scene.kind != Scene::Kind::Start) guest_.StartUp();
}

bool Story::Play(const Scene& scene) const {
  if (scene.kind == Scene::Kind::Stop) return guest_.Stop();
  if (scene.kind == Scene::Kind::Start) {
    guest_.Start();
  } else {
    guest_.gate().Push(scene.command);
  }
  guest_.Settle();
  return true;
}

}  // namespace trials
