// How an odd guest is made, met by a command, undone, and what is asked before and after.
#include "trials/odd_guests.h"

#include <platform/control.h>

#include <algorithm>
#include <stdexcept>

#include "common/handles.h"
#include "host/judge.h"
#include "host/verify.h"

namespace trials {
namespace {

namespace fs = std::filesystem;

constexpr const char* commandNames[] = {"first \"on\"", "changed \"on\"", "\"off\""};

// Applications with types and a scheme of their own: "doc42", "own42" and "x-42".
host::Catalogue NinetyNine(const host::Icon& icon) {
  host::Catalogue many;
  for (int i = 1; i < 100; ++i) {
    const std::string name = std::to_string(i);
    many.Add({name, name, {"doc" + name, "shared"}, {"own" + name}, false, {"x-" + name}, {icon}});
  }
  return many;
}

host::Catalogue WithOneIcon(const host::Catalogue& catalogue) {
  host::Catalogue some;
  for (host::Application app : catalogue.applications()) {
    app.icons.resize(1);
    some.Add(std::move(app));
  }
  return some;
}

void SetWritable(const Lines& paths, bool writable) {
  for (const std::string& path : paths) {
    // The owner's write bit is what the layer goes by.
    if (fs::exists(HostFile(path)))
      fs::permissions(HostFile(path), fs::perms::owner_write,
                      writable ? fs::perm_options::add : fs::perm_options::remove);
  }
}

// The lines in which none of the parts stands; a line ends with a newline.
Lines Without(Lines lines, const Lines& parts) {
  std::erase_if(lines, [&](const std::string& line) {
    return std::ranges::any_of(
        parts, [&](const auto& part) { return (line + "\n").find(part) != std::string::npos; });
  });
  return lines;
}

// One command that meets one oddity.
class OddGuest {
 public:
  OddGuest(Setting& setting, const Oddity& oddity, Command command)
      : setting_(setting),
        guest_(setting.guest),
        oddity_(oddity),
        command_(command),
        shared_(oddity.misfit                   ? setting.hundred
                : command == Command::ChangedOn ? setting.changed
                                                : setting.usual) {}
  ~OddGuest() {
    guest_.module().Stop();
    SetWritable(oddity_.readOnly, true);
  }
  OddGuest(const OddGuest&) = delete;
  OddGuest& operator=(const OddGuest&) = delete;

  void Try() {
    RestoreGuestState(State());
    const host::Entries files = host::TakeSnapshot().files;
    guest_.Serve([this](const host::Question& question, std::span<const std::byte> envelope) {
      return Answer(question, envelope);
    });
    Make();
    host::GuestModel model(host::TakeSnapshot(), setting_.around);
    guest_.StartUp();
    guest_.CarryOut(host::SharingCommand(isOn()));
    isOn() ? model.On(shared_) : model.Off();
    guest_.CarryOut(host::AnnounceCommand());
    if (oddity_.isForeseen)
      RequireNone("while odd", Without(model.Compare(host::TakeSnapshot()), oddity_.untilOff));
    Lift();
    if (oddity_.applications != Oddity::Applications::Any) CheckApplications(files);
    CheckOnAndOff();
    guest_.StopCleanly();
  }

 private:
  bool isOn() const { return command_ != Command::Off; }
  const GuestState& State() const {
    return command_ == Command::FirstOn ? setting_.empty : setting_.furnished;
  }

  void Make() {
    if (oddity_.place) {
      const fs::path path = HostFile(oddity_.place->path);
      fs::remove_all(path);
      if (oddity_.place->holds == Oddity::Place::File) PutFile(oddity_.place->path, oddity_.place->bytes);
      if (oddity_.place->holds == Oddity::Place::Folder) fs::create_directories(path);
    }
    for (const std::string& path : oddity_.readOnly) {
      if (!fs::exists(HostFile(path))) fs::create_directories(HostFile(path));
    }
    SetWritable(oddity_.readOnly, false);
    for (const std::string& path : oddity_.running) {
      running_.emplace_back(CreateFileW(host::Widen(path).c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                        OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
      if (!running_.back()) throw std::runtime_error("not there to run: " + path);
    }
    if (!oddity_.denied.empty()) platform::DenyKey("HKEY_CURRENT_USER" + oddity_.denied.substr(4), true);
    oddity_.make();
  }

  void Lift() {
    running_.clear();
    SetWritable(oddity_.readOnly, true);
    if (!oddity_.denied.empty()) platform::DenyKey("HKEY_CURRENT_USER" + oddity_.denied.substr(4), false);
    if (oddity_.place && oddity_.place->isPutBack) {
      const fs::path path = HostFile(oddity_.place->path);
      const fs::path before = State().files / path.lexically_relative(platform::GuestRoot());
      fs::remove_all(path);
      if (fs::exists(before)) fs::copy(before, path, fs::copy_options::recursive);
    }
    oddity_.lift();
  }

  host::Reply Answer(const host::Question& question, std::span<const std::byte> envelope) const {
    if (oddity_.misfit && question.code == 102) return {.bytes = ListWith(*oddity_.misfit)};
    const bool isMisfit = oddity_.misfit && question.code > 102 && question.argument == oddity_.misfit->id;
    if (!isMisfit) return host::AnswerCommand(shared_, envelope);
    return question.code == 103 ? oddity_.misfit->icons : oddity_.misfit->details;
  }

  host::Bytes ListWith(const Misfit& misfit) const {
    const auto& apps = shared_.applications();
    host::Items items;
    for (const host::Application& app : apps) {
      items.Text(host::textItem, app.bundleId).Text(host::textItem, app.name);
      if (&app == &apps[apps.size() / 2])
        items.Text(host::textItem, misfit.id).Text(host::textItem, misfit.name);
    }
    return host::Envelope(102, items.bytes());
  }

  // What the judge holds against the guest, as far as it `counts`.
  Lines Judged(bool isOn, const std::function<bool(const host::Finding&)>& counts) const {
    Lines wrong;
    for (const host::Finding& each : host::Judge(host::TakeSnapshot(), shared_, isOn)) {
      if (each.kind != host::Finding::Kind::Kept && counts(each))
        wrong.push_back(each.application + ": " + each.text + ", " + each.path);
    }
    return wrong;
  }

  void CheckApplications(const host::Entries& filesBefore) const {
    const auto isBuilt = [&](const std::string& name) {
      return filesBefore.contains(LauncherOf(name)) || !isOn() ||
             oddity_.applications == Oddity::Applications::Right;
    };
    Lines wrong = Judged(isOn(), [&](const host::Finding& each) {
      // "Off" may fail at a file and leave those after it.
      const bool isLeftFile = !isOn() && each.path.starts_with("C:");
      return shared_.Find(each.application) && isBuilt(each.application) && !isLeftFile &&
             !oddity_.touched.contains(each.application);
    });
    const host::Snapshot guest = host::TakeSnapshot();
    for (const host::Application& app : shared_.applications()) {
      if (!isBuilt(app.name) && guest.files.contains(LauncherOf(app.name)))
        wrong.push_back("built: " + app.name);
    }
    RequireNone("while odd", Without(wrong, oddity_.untilOff));
  }

  // The guest is odd no longer: "on" makes it what it must be, whatever came before, and "off" takes it back.
  void CheckOnAndOff() {
    guest_.Share(shared_);
    host::GuestModel model(host::TakeSnapshot(), setting_.around);
    guest_.CarryOut(host::SharingCommand(true));
    model.On(shared_);
    RequireNone("on again", model.Compare(host::TakeSnapshot()));
    // Of an application that the list no longer has, only "off" looks for what could not be removed.
    const auto isListed = [&](const host::Finding& each) {
      return shared_.Find(each.application) || !setting_.usual.Find(each.application);
    };
    if (std::ranges::find(oddity_.orphans, command_) == oddity_.orphans.end())
      RequireNone("on again, to the judge",
                  Without(Without(Judged(true, isListed), oddity_.untilOff), oddity_.forGood));

    guest_.CarryOut(host::SharingCommand(false));
    model.Off();
    const host::Snapshot now = host::TakeSnapshot();
    RequireNone("off again", model.Compare(now));
    RequireNone("off again, beyond the residue",
                Without(host::BeyondResidue(setting_.before, now), oddity_.forGood));
    RequireNone("off again, elsewhere",
                Without(host::Differences(setting_.elsewhere, Elsewhere()), oddity_.forGood));
  }

  Setting& setting_;
  Guest& guest_;
  const Oddity& oddity_;
  const Command command_;
  const host::Catalogue& shared_;  // while the guest is odd, and after it
  std::vector<UniqueFile> running_;
};

}  // namespace

Setting::Setting(const Options& options, const std::filesystem::path& driveC)
    : guest(driveC),
      usual(WithOneIcon(options.catalogue)),
      changed(ChangedCatalogue(usual)),
      hundred(NinetyNine(usual.applications().at(0).icons.at(0))) {
  // The tools' own folder is there before the module makes the launchers' in it.
  PutFile(host::LauncherFolder() + "\\..\\tools.ini", "");
  around = host::LookAround();
  before = host::TakeSnapshot();
  elsewhere = Elsewhere();
  empty = SaveGuestState();
  guest.StartUp();
  guest.On(usual);
  furnished = SaveGuestState();
  guest.StopCleanly();
}

Tally TryGuests(const Options& options) {
  return RunCrew(options.folder, options.jobs, [&](std::size_t job, Report& report) {
    report.Trial("the guest before it turns odd");
    Setting setting(options, options.folder / ("guests-" + std::to_string(job)));
    std::size_t number = 0;
    for (const auto& table : {FileOddities, HostOddities, RegistryOddities}) {
      for (const Oddity& oddity : table(setting)) {
        for (const Command command : oddity.commands) {
          if (!options.IsFor(job, number++)) continue;
          report.Try(oddity.name + " (" + commandNames[static_cast<int>(command)] + ")",
                     [&] { OddGuest(setting, oddity, command).Try(); });
          report.Count(oddity.misfit ? "misfits among a hundred" : "odd guests");
        }
      }
    }
  });
}

}  // namespace trials
