// The steps of the demonstration. Each expectation that is not met ends it with the whole list of
// differences.
#include "host/story.h"

#include <iostream>
#include <stdexcept>

#include "host/guest_view.h"
#include "host/narrator.h"
#include "host/session.h"
#include "host/tree.h"
#include "host/verify.h"

namespace host {
namespace {

void Expect(const std::vector<std::string>& differences, const std::string& when) {
  if (differences.empty()) return;
  std::string text = "the guest does not hold what it must " + when + ":";
  for (const std::string& difference : differences) text += "\n  " + difference;
  throw std::runtime_error(text);
}

void Heading(const std::string& text) {
  std::cout << "\n* " << text << "\n";
}

std::string Count(std::uint64_t number, const char* noun) {
  return std::to_string(number) + " " + noun + (number == 1 ? "" : "s");
}

// One renamed, one gone, one new, and one new whose icons the guest refuses.
Catalogue Changed(const Catalogue& catalogue) {
  const auto& apps = catalogue.applications();
  if (apps.size() < 3) throw std::runtime_error("the story needs a catalogue of at least three applications");
  const Application& renamed = apps[0];
  const Application& gone = apps[1];
  Application added = apps[2], refused = apps[2];
  added.name = "Newcomer";
  added.bundleId = "example.newcomer";
  added.icons = gone.icons;
  refused.name = "Faceless";
  refused.bundleId = "example.faceless";
  for (Icon& icon : refused.icons) icon = RefusedIcon(icon);

  Catalogue changed = catalogue;
  changed.Rename(renamed.name, renamed.name + " Deluxe");
  changed.Remove(gone.name);
  changed.Add(std::move(added));
  changed.Add(std::move(refused));
  std::cout
      << "    \"" << renamed.name << "\" is now \"" << renamed.name << " Deluxe\", \"" << gone.name
      << "\" is gone, \"Newcomer\" has come,\n    and \"Faceless\", which has no icon that the guest takes\n";
  return changed;
}

class Story {
 public:
  explicit Story(const SessionOptions& options)
      : session_(options.module, options.limit), model_(TakeSnapshot(), LookAround()) {}

  void Start() {
    Heading("The module starts");
    session_.Start();
    std::cout << "    it has announced itself\n";
    if (!TakeSnapshot().launchers.empty()) {
      std::cout << "    applications of an earlier run are there: sharing goes off first\n";
      session_.Off();
      model_.Off();
    }
    before_ = last_ = TakeSnapshot();
    Expect(model_.Compare(last_), "at the start");
  }

  Requests On(const Catalogue& catalogue, const std::string& heading) {
    Heading(heading);
    Narrator narrator(catalogue);
    session_.Share(catalogue);
    session_.Watch([&](const Question& question) { narrator.Hear(question); });
    const Requests requests = session_.On();
    session_.Watch({});
    narrator.SayFailed();
    model_.On(catalogue);
    Look("after \"on\"");
    return requests;
  }

  void ShowAll() const {
    std::cout << "  The guest holds (where {folder} is " << LauncherFolder() << "):\n";
    PrintFiles(std::cout, last_);
    PrintRegistry(std::cout, last_);
  }

  void ShowChanges() const {
    std::cout << "  What changed in the guest:\n";
    PrintDifference(std::cout, previous_, last_);
  }

  void RepeatUnchanged(const Catalogue& catalogue) {
    Heading("Sharing on again, nothing has changed");
    session_.Share(catalogue);
    const Requests requests = session_.On();
    model_.On(catalogue);
    Look("after an \"on\" that changes nothing");
    if (requests.icons != 0) throw std::runtime_error("the guest asked for icons that it has");
    if (PrintDifference(std::cout, previous_, last_)) {
      throw std::runtime_error("the guest changed, though the catalogue had not");
    }
    std::cout << "    " << Count(1, "request") << " for the list, " << requests.details
              << " for details, none for icons; no file and no entry changed\n";
  }

  void Off() {
    Heading("Sharing off");
    session_.Off();
    model_.Off();
    Look("after \"off\"");
    std::cout << "  Against the guest before \"on\":\n";
    const bool differs = PrintDifference(std::cout, before_, last_);
    Expect(BeyondResidue(before_, last_), "after \"off\"");
    std::cout << (differs ? "    this is the residue that the layout documents, and nothing else\n"
                          : "    no difference\n");
  }

  void Stop() {
    Heading("The module stops");
    session_.Stop();
    const GateFacts facts = session_.Facts();
    std::cout << "    " << Count(facts.receives, "receive") << ", " << Count(facts.sends, "request")
              << ", no breach of the gate's contract\n";
  }

 private:
  void Look(const std::string& when) {
    previous_ = std::move(last_);
    last_ = TakeSnapshot();
    Expect(model_.Compare(last_), when);
  }

  Session session_;
  GuestModel model_;
  Snapshot before_, previous_, last_;
};

}  // namespace

void TellStory(const Catalogue& catalogue, const SessionOptions& options, bool keepOn) {
  Story story(options);
  story.Start();
  story.On(catalogue, "Sharing on: the host shares " + Count(catalogue.applications().size(), "application"));
  story.ShowAll();
  story.RepeatUnchanged(catalogue);
  Heading("The catalogue changes");
  story.On(Changed(catalogue), "Sharing on again");
  story.ShowChanges();
  if (!keepOn) story.Off();
  story.Stop();
}

}  // namespace host
