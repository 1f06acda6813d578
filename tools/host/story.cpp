// The steps of the demonstration. Each expectation that is not met ends it with the whole list of
// differences.
#include "host/story.h"

#include <iostream>
#include <set>
#include <stdexcept>

#include "guest/difference.h"
#include "guest/places.h"
#include "guest/tree.h"
#include "host/judge.h"
#include "host/session.h"

namespace host {
namespace {

// A name or an identifier that the catalogue does not have yet.
std::string Free(const Catalogue& catalogue, const std::string& wish) {
  const auto& apps = catalogue.applications();
  std::string free = wish;
  const auto isTaken = [&](const Application& app) {
    return EqualNoCase(app.name, free) || app.bundleId == free;
  };
  for (int i = 2; std::ranges::any_of(apps, isTaken); ++i) free = wish + " " + std::to_string(i);
  return free;
}

struct Change {
  Catalogue catalogue;
  std::string text;  // what has changed, one line each
};

// One renamed, one gone, one new, and one new whose icons the guest refuses, as far as the catalogue has room
// and applications for it.
Change Changed(const Catalogue& catalogue) {
  Change change{catalogue, ""};
  const auto attempt = [&](const std::string& text, const auto& edit) {
    try {
      edit();
      change.text += "    " + text + "\n";
    } catch (const std::runtime_error&) {
      // The catalogue has said why it cannot hold this; it is as it was.
    }
  };
  Application model;
  if (catalogue.applications().size() > 2) model = catalogue.applications()[2];
  if (!CanBeBuilt(model)) model.icons = {PlainIcon()};
  if (!catalogue.applications().empty()) {
    const std::string old = catalogue.applications()[0].name, name = Free(catalogue, old + " Deluxe");
    attempt("\"" + old + "\" is now \"" + name + "\"", [&] { change.catalogue.Rename(old, name); });
  }
  if (catalogue.applications().size() > 1) {
    const std::string gone = catalogue.applications()[1].name;
    attempt("\"" + gone + "\" is gone", [&] { change.catalogue.Remove(gone); });
  }
  const auto add = [&](const std::string& wish, const std::string& text) {
    model.name = Free(change.catalogue, wish);
    model.bundleId = Free(change.catalogue, "example." + wish);
    attempt("\"" + model.name + "\" has come" + text, [&] { change.catalogue.Add(model); });
  };
  add("Newcomer", "");
  for (Icon& icon : model.icons) icon = RefusedIcon(icon);
  add("Faceless", ", which has no icon that the guest takes");
  return change;
}

class Story {
 public:
  Story(const SessionOptions& session, const StoryOptions& options)
      : options_(options), session_(session.module, session.limit) {
    if (options.listen) session_.conversation().Listen(options.listen);
  }

  void Start() {
    Heading("The module starts");
    session_.Start();
    std::cout << "    it has announced itself\n";
    if (!TakeSnapshot().launchers.empty()) {
      std::cout << "    applications of an earlier run are there: sharing goes off first\n";
      session_.Off();
    }
    before_ = last_ = TakeSnapshot();
    Expect({}, false, "at the start");
    Watch({});
  }

  void On(const Catalogue& catalogue, const std::string& heading) {
    Heading(heading);
    session_.Share(catalogue);
    const Requests requests = session_.On();
    shared_ = catalogue;
    Look("after \"on\"", true);
    std::cout << "    the guest asked for the list, " << requests.icons << " times for icons and "
              << requests.details << " times for details\n";
    const std::vector<std::string> failed = Unmirrored(catalogue, last_);
    if (!failed.empty()) {
      std::cout << "    " << Count(failed.size(), "application") << " could not be mirrored: " << failed[0]
                << (failed.size() > 1 ? ", ..." : "") << "\n";
    }
  }

  // An application that cannot be built is tried again each time.
  void RepeatUnchanged(const Catalogue& catalogue) {
    On(catalogue, "Sharing on again, nothing has changed");
    if (previous_.files != last_.files || previous_.registry != last_.registry) {
      throw std::runtime_error("the guest changed, though the catalogue had not");
    }
  }

  // The guest does not know before the next "on".
  void Alter(const Change& change) {
    Heading("The catalogue changes");
    std::cout << change.text;
    Watch(change.catalogue);
  }

  void Off() {
    Heading("Sharing off");
    session_.Off();
    Look("after \"off\"", false);
    std::cout << "    against the guest before \"on\" nothing is left but the documented residue:\n";
    SayChanges(before_, last_);
  }

  void Stop() {
    Heading("The module stops");
    session_.Stop();
    const GateFacts facts = session_.Facts();
    std::cout << "    " << Count(facts.receives, "receive") << ", " << Count(facts.sends, "request")
              << ", no breach of the gate's contract\n";
  }

 private:
  void Heading(const std::string& text) {
    step_ = text;
    session_.conversation().BeginStep(text);
    std::cout << "\n* " << text << std::endl;
  }

  // The applications' entries are judged, and all others are as they were.
  void Expect(const Catalogue& catalogue, bool sharing, const std::string& when) const {
    std::string text;
    for (const Finding& finding : Judge(last_, catalogue, sharing)) {
      if (finding.kind != Finding::Kind::Kept) text += "\n  " + finding.application + ": " + finding.text;
    }
    const auto isOurs = [folder = LauncherFolder()](const Snapshot& guest, const std::string& path) {
      return PlaceOf(guest.registry, path, folder).has_value();
    };
    ForEachDifference(before_.registry, last_.registry,
                      [&](const std::string& path, const std::string* old, const std::string*) {
                        if (!old || isOurs(before_, path) || isOurs(last_, path)) return;
                        text += "\n  an entry of somebody else's: " + path;
                      });
    if (!text.empty()) throw std::runtime_error("the guest does not hold what it must " + when + ":" + text);
  }

  void Watch(const Catalogue& catalogue) const {
    SaveGuest();
    if (options_.watch) options_.watch(step_, catalogue, last_);
    if (Interrupted()) throw std::runtime_error("interrupted: the module is stopped, the guest is saved");
  }

  void Look(const std::string& when, bool sharing) {
    previous_ = std::move(last_);
    last_ = TakeSnapshot();
    Expect(shared_, sharing, when);
    SayChanges(previous_, last_);
    Watch(sharing ? shared_ : Catalogue());
  }

  void SayChanges(const Snapshot& before, const Snapshot& now) const {
    PrintTally(std::cout, before, now);
    if (options_.trees) PrintDifference(std::cout, before, now);
  }

  const StoryOptions& options_;
  Session session_;
  Catalogue shared_;
  Snapshot before_, previous_, last_;
  std::string step_;
};

}  // namespace

std::string Summary(const Catalogue& catalogue) {
  std::size_t launchers = 0;
  std::size_t schemes = 0;  // each application's are its own
  std::set<std::string> types;
  for (const Application& app : catalogue.applications()) {
    if (!CanBeBuilt(app)) continue;
    ++launchers;
    types.insert(app.documentTypes.begin(), app.documentTypes.end());
    schemes += app.urlSchemes.size();
  }
  return Count(launchers, "launcher") + ", " + Count(launchers, "shortcut") + ", " +
         Count(types.size(), "type") + ", " + Count(schemes, "scheme");
}

Catalogue TellStory(const Catalogue& catalogue, const SessionOptions& session, const StoryOptions& options) {
  const Change change = Changed(catalogue);
  std::cout << "The host shares " << Count(catalogue.applications().size(), "application") << ": "
            << Summary(catalogue) << std::endl;
  Story story(session, options);
  story.Start();
  story.On(catalogue, "Sharing on");
  story.RepeatUnchanged(catalogue);
  story.Alter(change);
  story.On(change.catalogue, "Sharing on with the new catalogue");
  if (!options.keepOn) story.Off();
  story.Stop();
  return change.catalogue;
}

}  // namespace host
