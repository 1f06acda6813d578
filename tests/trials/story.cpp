// How a scene is noted, entered and played.
#include "trials/story.h"

namespace trials {

Story::Story(Guest& guest, const host::Catalogue& catalogue)
    : guest_(guest),
      first_(catalogue),
      changed_(ChangedCatalogue(catalogue)),
      untouched_(host::TakeSnapshot()) {
  for (const host::Application& app : first_.applications()) {
    if (!changed_.Find(app.name)) gone_.push_back(app.name + " (Mac)");
    if (app.documentTypes.empty()) typeless_.push_back(app.name + " (Mac)");
  }
  using enum Scene::Kind;
  Add("start", Start, {}, first_);
  Add("on", Command, host::SharingCommand(true), first_);
  Add("change", Command, host::SharingCommand(true), changed_);
  Add("again", Command, host::SharingCommand(true), changed_);
  Add("off", Command, host::SharingCommand(false), changed_);
  Add("stop", Stop, {}, changed_);
}

void Story::Add(const char* name, Scene::Kind kind, host::Bytes command, const host::Catalogue& catalogue) {
  Scene scene{name, kind, std::move(command), &catalogue, SaveGuestState(), host::TakeSnapshot(), {}, {}};
  Enter(scene);
  Play(scene);
  const GuestState after = SaveGuestState();
  guest_.On(catalogue);
  scene.expectedOn = host::TakeSnapshot();
  guest_.Off();
  guest_.On(catalogue);
  scene.expectedAnew = host::TakeSnapshot();
  guest_.Stop();
  RestoreGuestState(after);
  scenes_.push_back(std::move(scene));
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
