// How a scene is entered, played and recovered from.
#include "trials/scenes.h"

#include <platform/control.h>

#include <algorithm>
#include <set>

#include "host/verify.h"
#include "trials/lasting.h"

namespace trials {
namespace {

using Lines = std::vector<std::string>;

// One line for each file or registry entry that is not as expected; a value stands as "key|name".
void Compare(const host::Entries& expected, const host::Entries& found, Lines& differences) {
  const auto add = [&](const char* how, std::string path, const std::string& data) {
    std::replace(path.begin(), path.end(), host::valueMark, '|');
    differences.push_back(how + path + data);
  };
  for (const auto& [path, data] : expected) {
    const auto entry = found.find(path);
    if (entry == found.end()) {
      add("missing: ", path, "");
    } else if (entry->second != data) {
      add("wrong: ", path, ": " + entry->second + ", not " + data);
    }
  }
  for (const auto& [path, data] : found) {
    if (!expected.contains(path)) add("extra: ", path, "");
  }
}

Lines DifferencesFrom(const host::Snapshot& expected) {
  const host::Snapshot found = host::TakeSnapshot();
  Lines differences;
  Compare(expected.files, found.files, differences);
  Compare(expected.registry, found.registry, differences);
  return differences;
}

Lines Open(const host::GateFacts& facts) {
  Lines open;
  for (const auto& [kind, count] : platform::Census()) {
    // The log keeps its file.
    if (kind != "file" || count > 1) open.push_back("open: " + std::to_string(count) + " of kind " + kind);
  }
  if (facts.opens != facts.closes) open.push_back("open: the gate");
  for (const std::string& breach : facts.breaches) open.push_back("breach: " + breach);
  return open;
}

}  // namespace

Story::Story(Rig& rig, const Options& options)
    : rig_(rig), first_(options.catalogue), changed_(ChangedCatalogue(options.catalogue)) {
  untouched_ = host::TakeSnapshot();
  const auto add = [&](const char* name, Scene::Kind kind, host::Bytes command,
                       const host::Catalogue* catalogue) {
    Scene scene{name, kind, std::move(command), catalogue, SaveGuestState(), host::TakeSnapshot(), {}, {}};
    Enter(scene);
    Play(scene);
    const GuestState after = SaveGuestState();
    rig_.On(*catalogue);
    scene.expectedOn = host::TakeSnapshot();
    rig_.Off();
    rig_.On(*catalogue);
    scene.expectedAnew = host::TakeSnapshot();
    rig_.Stop();
    RestoreGuestState(after);
    scenes_.push_back(std::move(scene));
  };
  using enum Scene::Kind;
  add("start", Start, {}, &first_);
  add("on", Command, host::SharingCommand(true), &first_);
  add("change", Command, host::SharingCommand(true), &changed_);
  add("again", Command, host::SharingCommand(true), &changed_);
  add("off", Command, host::SharingCommand(false), &changed_);
  add("stop", Stop, {}, &changed_);
}

void Story::Enter(const Scene& scene) {
  RestoreGuestState(scene.before);
  rig_.Share(scene.catalogue);
  if (scene.kind != Scene::Kind::Start) rig_.StartUp();
}

bool Story::Play(const Scene& scene) {
  if (scene.kind == Scene::Kind::Stop) return rig_.Stop();
  if (scene.kind == Scene::Kind::Start) {
    rig_.Start();
  } else {
    rig_.Send(scene.command);
  }
  rig_.Settle();
  return true;
}

void Story::Rest() {
  if (!rig_.Settle()) rig_.Stop();
}

void Story::FailHalfMade(const std::string& cause, Report& report) {
  for (const auto& [path, launcher] : host::TakeSnapshot().launchers) {
    if (launcher.bundleId.empty() || launcher.name.empty() || launcher.description.empty() ||
        launcher.iconSizes.empty()) {
      if (cause == "MultiByteToWideChar") {
        report.Count("launchers with a name or an identifier that was not converted");
      } else {
        report.Fail("half-made: " + path);
      }
    }
  }
}

// "Off", and what it should not have left.
Lines Story::ClearAway() {
  rig_.Off();
  Lines left = host::BeyondResidue(untouched_, host::TakeSnapshot());
  for (std::string& line : left) line = "after \"off\", " + line;
  return left;
}

void Story::Recover(const Scene& scene, const std::string& cause, Report& report) {
  bool forGood = false;
  const auto failEach = [&](const Lines& lines) {
    for (const std::string& line : lines) IsLeftForGood(line) ? void(forGood = true) : report.Fail(line);
  };
  rig_.On(*scene.catalogue);
  Lines differences = DifferencesFrom(scene.expectedOn);
  if (!differences.empty()) {
    rig_.On(*scene.catalogue);
    differences = DifferencesFrom(scene.expectedOn);
    if (differences.empty()) report.Count("second \"on\"s that were needed");
  }
  if (!differences.empty() && cause == "CoInitialize") {
    // Such a worker makes no shortcut, and so no launcher, for as long as it runs.
    rig_.Stop();
    rig_.StartUp();
    rig_.On(*scene.catalogue);
    differences = DifferencesFrom(scene.expectedOn);
    report.Count("new starts that were needed, of a worker without COM");
  }
  const bool lasting = !differences.empty();
  std::set<std::string> kinds;
  for (const std::string& difference : differences) {
    const char* kind = LastingKind(scene, cause, difference);
    if (kind == nullptr) report.Fail(difference);
    if (kind != nullptr) kinds.insert(kind);
  }
  for (const std::string& kind : kinds) report.Count("left until the next \"off\": " + kind);
  failEach(ClearAway());
  if (lasting) {
    rig_.On(*scene.catalogue);
    for (const std::string& difference : DifferencesFrom(scene.expectedAnew)) {
      if (!IsResidue(difference) && !IsLeftForGood(difference))
        report.Fail("after \"off\" and \"on\", " + difference);
    }
    failEach(ClearAway());
  }
  if (forGood) report.Count("left for good: entries of an application whose removal failed");
  // A start frees what an earlier worker could not.
  rig_.Stop();
  rig_.Start();
  rig_.Stop();
  failEach(Open(rig_.gate().Facts()));
}

Tally InEachScene(const Options& options, EachScene* each) {
  return RunCrew(options.jobs, [&](std::size_t job, Report& report) {
    report.Trial("the story without faults");
    Rig rig(options.folder / std::to_string(job));
    Story story(rig, options);
    for (const Scene& scene : story.scenes()) each(story, scene, options, job, report);
  });
}

}  // namespace trials
