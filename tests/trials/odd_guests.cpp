// The roads through an odd guest, and what is asked on them.
#include "trials/odd_guests.h"

#include <algorithm>
#include <stdexcept>
#include <thread>

#include "host/text.h"
#include "host/verify.h"
#include "host/wire.h"

namespace trials {
namespace {

constexpr const char* roadNames[] = {"nothing shared, on", "shared, on with changes", "shared, off"};

host::Catalogue SmallIcons(const host::Catalogue& catalogue) {
  host::Catalogue small;
  for (host::Application app : catalogue.applications()) {
    app.icons.resize(1);
    small.Add(std::move(app));
  }
  return small;
}

// The list reply with the extras' identifiers and names behind the catalogue's.
void AddToList(host::Bytes& reply, const std::vector<Extra>& extras) {
  for (const Extra& extra : extras) {
    for (const std::string& text : {extra.bundleId, extra.name}) {
      for (const std::size_t field : {std::size_t{0}, std::size_t{3}, text.size() + 1}) {
        host::PutU32(reply, static_cast<std::uint32_t>(field));
      }
      const auto* bytes = reinterpret_cast<const std::byte*>(text.c_str());
      reply.insert(reply.end(), bytes, bytes + text.size() + 1);
    }
  }
  host::Bytes size;
  host::PutU32(size, static_cast<std::uint32_t>(reply.size() - 20));
  std::copy(size.begin(), size.end(), reply.begin() + 16);
}

bool IsNamedIn(const std::string& line, const std::string& application) {
  return line.find("\\" + application + " (Mac)") != std::string::npos ||
         line.find(" " + application + " (Mac)") != std::string::npos ||
         line.find("Tsrn.Url." + application + " (Mac)") != std::string::npos;
}

void Forgive(std::vector<std::string>& lines, const std::vector<std::string>& parts) {
  std::erase_if(lines, [&](const std::string& line) {
    return std::any_of(parts.begin(), parts.end(),
                       [&](const auto& part) { return line.find(part) != std::string::npos; });
  });
}

const host::Catalogue& OddCatalogue(const Stage& stage, const Oddity& oddity, Road road) {
  return oddity.shared ? *oddity.shared : road == Road::Changed ? stage.changed : stage.usual;
}

// One road through one odd guest.
class Walk {
 public:
  Walk(Report& report, Stage& stage, const Oddity& oddity, Road road)
      : report_(report),
        stage_(stage),
        oddity_(oddity),
        road_(road),
        odd_(OddCatalogue(stage, oddity, road)) {}

  void Go() {
    RestoreGuestState(road_ == Road::Empty ? stage_.empty : stage_.furnished);
    for (const auto& [path, launcher] : host::TakeSnapshot().launchers) had_.push_back(path);
    stage_.Share(odd_, oddity_.extras);
    oddity_.make(stage_);
    host::GuestModel model(host::TakeSnapshot(), stage_.around);
    stage_.Start();
    CarryOut(host::SharingCommand(road_ != Road::Off));
    road_ == Road::Off ? model.Off() : model.On(odd_);
    CarryOut(host::AnnounceCommand());
    if (oddity_.foreseen) RequireNone("while odd", model.Compare(host::TakeSnapshot()));
    Begin("the outcome while odd");
    oddity_.lift(stage_);
    CheckFates(host::TakeSnapshot());
    CheckOnAndOff();
    StopAndCount(stage_.rig);
  }

 private:
  void CheckFates(const host::Snapshot& guest) const {
    host::GuestModel full(stage_.before, stage_.around);
    full.On(odd_);
    std::vector<std::string> wrong;
    for (const host::Application& app : odd_.applications()) {
      const std::string launcher = LauncherOf(app.name);
      const bool had = std::find(had_.begin(), had_.end(), launcher) != had_.end();
      const Fate fate = oddity_.fate(app, road_, had);
      if (fate == Fate::Missing && guest.launchers.contains(launcher))
        wrong.push_back("not missing: " + app.name);
      if (fate != Fate::Right) continue;
      const host::Snapshot own = stage_.EntriesOf(app);
      const auto check = [&](const host::Entries& entries, const host::Entries& all,
                             const host::Entries& found, bool data) {
        for (const auto& [path, text] : entries) {
          const auto now = found.find(path);
          if (road_ == Road::Off) {
            if (now != found.end() && IsNamedIn(path, app.name) &&
                path.find("\\OpenWithList") == std::string::npos)
              wrong.push_back("not withdrawn: " + path);
          } else if (now == found.end() || (data && now->second != text && all.at(path) == text)) {
            wrong.push_back("not right: " + path);
          }
        }
      };
      check(own.registry, full.expected().registry, guest.registry, true);
      if (road_ != Road::Off) check(own.files, full.expected().files, guest.files, false);
    }
    RequireNone("while odd", wrong);
  }

  // The guest is odd no longer: "on" makes it what it must be, whatever came before, and "off" takes it back.
  void CheckOnAndOff() {
    const host::Catalogue& last = road_ == Road::Changed ? stage_.changed : stage_.usual;
    Begin("on again");
    stage_.Share(last, {});
    host::GuestModel model(host::TakeSnapshot(), stage_.around), clean(stage_.before, stage_.around);
    if (road_ != Road::Empty) clean.On(stage_.usual);
    if (road_ == Road::Off) clean.Off();
    clean.On(last);
    const bool orphans =
        std::find(oddity_.orphans.begin(), oddity_.orphans.end(), road_) != oddity_.orphans.end();
    for (int pass = 0; pass < (orphans ? 2 : 1); ++pass) {
      CarryOut(host::SharingCommand(true));
      model.On(last);
    }
    Begin("the outcome of on again");
    host::Snapshot now = host::TakeSnapshot();
    RequireNone("on again", model.Compare(now));
    std::vector<std::string> differences = clean.Compare(now);
    // The documented residue, and what could not be removed of an application that the list no longer has:
    // only "off" looks for that.
    std::erase_if(differences, [&](const std::string& line) {
      return line.starts_with("unexpected: ") &&
             (line.find(host::classesKey + "\\.") != std::string::npos || IsOfGone(line, last));
    });
    Forgive(differences, oddity_.untilOff);
    for (const host::Application& app : last.applications()) {
      if (orphans && app.documentTypes.empty()) Forgive(differences, {app.name + " (Mac)"});
    }
    Forgive(differences, oddity_.forGood);
    RequireNone("on again, against a guest that was never odd", differences);

    Begin("off again");
    CarryOut(host::SharingCommand(false));
    model.Off();
    now = host::TakeSnapshot();
    RequireNone("off again", model.Compare(now));
    differences = host::BeyondResidue(stage_.before, now);
    for (std::string& line : Differences(stage_.elsewhere, Elsewhere()))
      differences.push_back(std::move(line));
    Forgive(differences, oddity_.forGood);
    RequireNone("off again, beyond the residue", differences);
  }

  bool IsOfGone(const std::string& line, const host::Catalogue& last) const {
    const auto isGone = [&](const host::Catalogue& catalogue) {
      const auto& apps = catalogue.applications();
      return std::any_of(apps.begin(), apps.end(), [&](const host::Application& app) {
        return !last.Find(app.name) && IsNamedIn(line, app.name);
      });
    };
    return isGone(stage_.usual) || isGone(odd_);
  }

  // A thousand applications take their time, with a sanitizer above all: the limit of a trial is one for each
  // of a few parts.
  void CarryOut(const host::Bytes& command) {
    constexpr int parts = 8;
    stage_.rig.Send(command);
    for (int part = 0; !stage_.rig.gate().WaitIdle(std::chrono::seconds(30)); ++part) {
      if (part == parts) throw std::runtime_error("the guest does not come to rest");
      Begin(step_);
    }
  }

  // Each step has a time limit of its own.
  void Begin(const std::string& step) {
    step_ = step;
    report_.Trial(oddity_.name + " (" + roadNames[static_cast<int>(road_)] + "), " + step);
  }

  Report& report_;
  Stage& stage_;
  const Oddity& oddity_;
  Road road_;
  const host::Catalogue& odd_;
  std::vector<std::string> had_;
  std::string step_ = "while odd";
};

}  // namespace

Stage::Stage(const Options& options, const std::filesystem::path& driveC)
    : usual(SmallIcons(options.catalogue)), changed(ChangedCatalogue(usual)), rig(driveC) {
  // The tools' own folder is there before the module makes the launchers' in it.
  PutFile(host::LauncherFolder() + "\\..\\tools.ini", "");
  around = host::LookAround();
  before = host::TakeSnapshot();
  elsewhere = Elsewhere();
  empty = SaveGuestState();
  Share(usual, {});
  Start();
  CarryOut(rig, host::SharingCommand(true));
  StopAndCount(rig);
  furnished = SaveGuestState();
}

host::Snapshot Stage::EntriesOf(const host::Application& app) const {
  host::GuestModel model(before, around);
  host::Catalogue alone;
  alone.Add(app);
  model.On(alone);
  host::Snapshot entries = model.expected();
  const auto drop = [](host::Entries& from, const host::Entries& what) {
    std::erase_if(from, [&](const auto& entry) {
      const auto found = what.find(entry.first);
      return found != what.end() && found->second == entry.second;
    });
  };
  drop(entries.registry, before.registry);
  drop(entries.files, before.files);
  return entries;
}

void Stage::Hold(const std::string& guestPath) {
  const HANDLE file = CreateFileW(host::Widen(guestPath).c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                  OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) throw std::runtime_error("cannot be held: " + guestPath);
  held_.push_back(file);
}

void Stage::LetGo() {
  for (const HANDLE file : held_) CloseHandle(file);
  held_.clear();
}

void Stage::Start() {
  const std::uint64_t sofar = announcements_;
  if (!rig.Start()) throw std::runtime_error("the module does not start");
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(50);
  while (announcements_ == sofar) {
    if (std::chrono::steady_clock::now() > end)
      throw std::runtime_error("the guest does not announce itself");
    std::this_thread::yield();
  }
}

void Stage::Share(const host::Catalogue& catalogue, const std::vector<Extra>& extras) {
  rig.gate().Serve([this, &catalogue, extras](std::span<const std::byte> envelope) {
    const host::Question question = host::ReadQuestion(envelope);
    if (question.code == 100) ++announcements_;
    host::Catalogue ofExtra;
    for (const Extra& extra : extras) {
      if (extra.bundleId != question.argument) continue;
      host::Application app = catalogue.applications().front();
      app.bundleId = extra.bundleId;
      app.documentTypes.emplace_back("odd");
      app.defaultTypes = {"odd"};
      app.urlSchemes = {"odd"};
      ofExtra.Add(std::move(app));
      return host::AnswerCommand(ofExtra, envelope);
    }
    host::Reply reply = host::AnswerCommand(catalogue, envelope);
    if (question.code == 102) AddToList(reply.bytes, extras);
    return reply;
  });
}

Tally TryGuests(const Options& options) {
  return RunCrew(options.jobs, [&](std::size_t job, Report& report) {
    report.Trial("the guest before it turns odd");
    auto stage = std::make_unique<Stage>(options, options.folder / ("guests-" + std::to_string(job)));
    std::size_t number = 0;
    for (const auto& table : {FileOddities, HostOddities, RegistryOddities, DeniedKeys, SpoiltValues}) {
      for (const Oddity& oddity : table(*stage)) {
        for (const Road road : oddity.roads) {
          const std::size_t turn = number++;
          if (turn % options.every != 0 || turn / options.every % options.jobs != job) continue;
          Try(report, oddity.name + " (" + roadNames[static_cast<int>(road)] + ")", [&] {
            try {
              Walk(report, *stage, oddity, road).Go();
            } catch (...) {
              oddity.lift(*stage);  // the next one finds its guest as it expects it
              stage->rig.module().Stop();
              throw;
            }
            report.Count("odd guests");
          });
        }
      }
    }
  });
}

}  // namespace trials
