// The roads through an odd guest, and what is asked on them.
#include "trials/odd_guests.h"

#include <algorithm>
#include <stdexcept>

#include "host/verify.h"

namespace trials {
namespace {

constexpr const char* roadNames[] = {"nothing shared, on", "shared, on with changes", "shared, off"};

// Applications with two letters for a name each, so that a thousand of them fit in one reply, and with types
// and a scheme of their own: "doc2s", "own2s" and "x-2s".
host::Catalogue Many(std::size_t count, const host::Icon& icon) {
  constexpr std::string_view digits = "0123456789abcdefghijklmnopqrstuvwxyz";
  host::Catalogue many;
  for (std::size_t i = 0; i < count; ++i) {
    const std::string name{digits[i / 36], digits[i % 36]};
    many.Add({name, name, {"doc" + name, "shared"}, {"own" + name}, false, {"x-" + name}, {icon}});
  }
  return many;
}

bool Names(const std::string& line, const std::string& application) {
  return std::ranges::any_of(Lines{"\\", " ", "Tsrn.Url."}, [&](const std::string& before) {
    return line.find(before + application + " (Mac)") != std::string::npos;
  });
}

// Drops the lines in which one of the parts stands; a line ends with a newline.
void Forgive(Lines& lines, const Lines& parts) {
  std::erase_if(lines, [&](const std::string& line) {
    return std::ranges::any_of(
        parts, [&](const auto& part) { return (line + "\n").find(part) != std::string::npos; });
  });
}

// One road through one odd guest.
class Walk {
 public:
  Walk(Setting& setting, const Oddity& oddity, Road road)
      : setting_(setting),
        guest_(setting.guest),
        oddity_(oddity),
        road_(road),
        shared_(oddity.shared           ? *oddity.shared
                : road == Road::Changed ? setting.changed
                                        : setting.usual) {}

  void Go() {
    RestoreGuestState(road_ == Road::Empty ? setting_.empty : setting_.furnished);
    const host::Snapshot start = host::TakeSnapshot();
    guest_.Serve([this](const host::Question& question, std::span<const std::byte> envelope) {
      return oddity_.misfit ? AnswerWith(*oddity_.misfit, question, envelope)
                            : host::AnswerCommand(shared_, envelope);
    });
    oddity_.make();
    host::GuestModel model(host::TakeSnapshot(), setting_.around);
    guest_.StartUp();
    const std::uint64_t before = guest_.asked(103);
    guest_.CarryOut(host::SharingCommand(road_ != Road::Off));
    const std::uint64_t icons = guest_.asked(103) - before;
    road_ == Road::Off ? model.Off() : model.On(shared_);
    guest_.CarryOut(host::AnnounceCommand());
    Lines differences = model.Compare(host::TakeSnapshot());
    if (oddity_.misfit) Forgive(differences, oddity_.untilOff);
    if (oddity_.foreseen) RequireNone("while odd", differences);
    oddity_.lift();
    const host::Snapshot outcome = host::TakeSnapshot();
    if (oddity_.misfit) CheckFiles(outcome.files);
    // Where no file can have its name, or its request fails before it comes here, nobody asks about it.
    if (oddity_.misfit && oddity_.misfit->name == "Misfit" && oddity_.misfit->failing == Kind::List &&
        icons != shared_.applications().size() + 1) {
      throw std::runtime_error("the misfit was never asked for");
    }
    if (oddity_.fate != Fate::Any) CheckFates(start, outcome);
    CheckOnAndOff();
    guest_.StopCleanly();
  }

 private:
  host::Reply AnswerWith(const Misfit& misfit, const host::Question& question,
                         std::span<const std::byte> envelope) {
    const auto kind = static_cast<Kind>(question.code);
    const auto& apps = shared_.applications();
    const host::Application& before = apps[apps.size() / 2];  // which is asked for right before
    if (kind == Kind::List) {
      host::Items items;
      for (const host::Application& app : apps) {
        items.Text(host::textItem, app.bundleId).Text(host::textItem, app.name);
        if (&app == &before) items.Text(host::textItem, misfit.id).Text(host::textItem, misfit.name);
      }
      return {.bytes = host::Envelope(question.code, items.bytes())};
    }
    const bool isMisfit = question.valid && question.argument == misfit.id && question.code != 100;
    const Kind next = kind == Kind::Details && question.argument == before.bundleId ? Kind::Icons
                      : isMisfit && kind == Kind::Icons                             ? Kind::Details
                                                                                    : Kind::List;
    if (next != Kind::List && next == misfit.failing)
      guest_.gate().FailNext({.request = host::sendCommand, .systemError = ERROR_GEN_FAILURE});
    if (!isMisfit) return host::AnswerCommand(shared_, envelope);
    return kind == Kind::Icons ? misfit.icons : misfit.details;
  }

  // The others' are to the byte what they are without the misfit.
  void CheckFiles(const host::Entries& files) const {
    for (const Difference& difference : Differences(setting_.filesOfHundred, files)) {
      if (difference.how != Difference::How::New) RequireNone("beside the misfit", {difference.Text()});
    }
  }

  void CheckFates(const host::Snapshot& start, const host::Snapshot& guest) const {
    host::GuestModel full(setting_.before, setting_.around);
    full.On(shared_);
    Lines wrong;
    for (const host::Application& app : shared_.applications()) {
      const std::string launcher = LauncherOf(app.name);
      if (oddity_.touched.contains(app.name)) continue;
      if (road_ != Road::Off && oddity_.fate == Fate::NoneNew && !start.launchers.contains(launcher)) {
        if (guest.launchers.contains(launcher)) wrong.push_back("not missing: " + app.name);
        continue;
      }
      const host::Snapshot own = setting_.EntriesOf(app);
      for (const auto& [path, data] : own.registry) {
        const auto found = guest.registry.find(path);
        const bool isThere = found != guest.registry.end();
        if (road_ == Road::Off) {
          const bool mayStay = !Names(path, app.name) || path.find("\\OpenWithList") != std::string::npos;
          if (isThere && !mayStay) wrong.push_back("not withdrawn: " + path);
        } else if (!isThere || (found->second != data && full.expected().registry.at(path) == data)) {
          wrong.push_back("not right: " + path);
        }
      }
      for (const auto& [path, data] : own.files) {
        if (road_ != Road::Off && !guest.files.contains(path)) wrong.push_back("missing: " + path);
      }
    }
    RequireNone("while odd", wrong);
  }

  // The guest is odd no longer: "on" makes it what it must be, whatever came before, and "off" takes it back.
  void CheckOnAndOff() {
    guest_.Share(shared_);
    host::GuestModel model(host::TakeSnapshot(), setting_.around), clean(setting_.before, setting_.around);
    if (road_ != Road::Empty) clean.On(setting_.usual);
    if (road_ == Road::Off) clean.Off();
    clean.On(shared_);
    const bool orphans = std::ranges::find(oddity_.orphans, road_) != oddity_.orphans.end();
    for (int pass = 0; pass < (orphans ? 2 : 1); ++pass) {
      guest_.CarryOut(host::SharingCommand(true));
      model.On(shared_);
    }
    host::Snapshot now = host::TakeSnapshot();
    RequireNone("on again", model.Compare(now));
    Lines differences = clean.Compare(now);
    // The documented residue, and what could not be removed of an application that the list no longer has:
    // only "off" looks for that.
    std::erase_if(differences, [&](const std::string& line) {
      return line.starts_with("unexpected: ") &&
             (line.find(host::classesKey + "\\.") != std::string::npos || NamesGone(line));
    });
    for (const host::Application& app : shared_.applications()) {
      if (orphans && app.documentTypes.empty()) Forgive(differences, {app.name + " (Mac)"});
    }
    Forgive(differences, oddity_.untilOff);
    Forgive(differences, oddity_.forGood);
    RequireNone("on again, against a guest that was never odd", differences);

    guest_.CarryOut(host::SharingCommand(false));
    model.Off();
    now = host::TakeSnapshot();
    RequireNone("off again", model.Compare(now));
    differences = host::BeyondResidue(setting_.before, now);
    Forgive(differences, oddity_.forGood);
    RequireNone("off again, beyond the residue", differences);
    if (Elsewhere() != setting_.elsewhere) throw std::runtime_error("off again, elsewhere in the guest");
  }

  bool NamesGone(const std::string& line) const {
    return std::ranges::any_of(setting_.usual.applications(), [&](const host::Application& app) {
      return !shared_.Find(app.name) && Names(line, app.name);
    });
  }

  Setting& setting_;
  Guest& guest_;
  const Oddity& oddity_;
  const Road road_;
  const host::Catalogue& shared_;  // while the guest is odd, and after it
};

}  // namespace

Setting::Setting(const Options& options, const std::filesystem::path& driveC)
    : guest(driveC),
      usual(FirstOf(options.catalogue, options.catalogue.applications().size())),
      changed(ChangedCatalogue(usual)),
      hundred(Many(99, usual.applications().at(0).icons.at(0))),
      thousand(Many(1000, usual.applications().at(0).icons.at(0))) {
  // The tools' own folder is there before the module makes the launchers' in it.
  PutFile(host::LauncherFolder() + "\\..\\tools.ini", "");
  around = host::LookAround();
  before = host::TakeSnapshot();
  elsewhere = Elsewhere();
  empty = SaveGuestState();
  guest.StartUp();
  guest.On(hundred);
  filesOfHundred = host::TakeSnapshot().files;
  RestoreGuestState(empty);
  guest.On(usual);
  furnished = SaveGuestState();
  guest.StopCleanly();
}

host::Snapshot Setting::EntriesOf(const host::Application& app) const {
  host::GuestModel model(before, around);
  host::Catalogue alone;
  alone.Add(app);
  model.On(alone);
  host::Snapshot own;
  for (const auto part : {&host::Snapshot::files, &host::Snapshot::registry}) {
    for (const Difference& difference : Differences(before.*part, model.expected().*part))
      (own.*part)[difference.path] = (model.expected().*part).at(difference.path);
  }
  return own;
}

Tally TryGuests(const Options& options) {
  return RunCrew(options.jobs, [&](std::size_t job, Report& report) {
    report.Trial("the guest before it turns odd");
    Setting setting(options, options.folder / ("guests-" + std::to_string(job)));
    std::size_t number = 0;
    for (const auto& table : {FileOddities, HostOddities, RegistryOddities}) {
      for (const Oddity& oddity : table(setting)) {
        for (const Road road : oddity.roads) {
          if (!options.IsFor(job, number++)) continue;
          report.Try(oddity.name + " (" + roadNames[static_cast<int>(road)] + ")", [&] {
            try {
              Walk(setting, oddity, road).Go();
            } catch (...) {
              oddity.lift();  // the next one finds its guest as it expects it
              setting.guest.module().Stop();
              throw;
            }
            report.Count(oddity.misfit ? "misfits among a hundred" : "odd guests");
          });
        }
      }
    }
  });
}

}  // namespace trials
