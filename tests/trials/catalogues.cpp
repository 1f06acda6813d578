// Random catalogues, shared twice and withdrawn again in a guest that is full of other programs' entries. A
// trial is told by seed and number.
#include "host/verify.h"
#include "support/hive.h"
#include "trials/dice.h"
#include "trials/guest.h"
#include "trials/trials.h"

namespace trials {
namespace {

constexpr std::size_t trials = 1000;

const Lines names = Split(
    "Atlas|Brush|Café|星図|A|A (Mac)|A (Mac) (Mac)|tool.exe|Comma, Inc.|x  y|100%|Ünïcode|λ-Kalkül|🎨 Paint|-|"
    "'quoted'|Foo & "
    "Bar|#1|~|.hidden|(Mac)|Mac|Tsrn.Url.A|[brackets]|{braces}|a=b;c|Applications|_auto_file|%1|"
    "^0041|名前.lnk|A rather long name that takes nearly all of the hundred bytes which a catalogue allows "
    "for one "
    "name");
const Lines types = Split(
    "txt|md|pdf|png|jpeg|html|exe|com|lnk|ico|BAT|a|文書|été|tar.gz|x "
    "y|c++|_|%1|mp3|wav|doc|docx|key|numbers|"
    "pages|^2|_auto_file|(Mac)");
const Lines schemes =
    Split("http|https|mailto|ftp|sms|x-atlas|x-brush|web+foo|äöü|irc|tel|a|scheme (Mac)|x_auto_file");
// Schemes, in the spelling above, that other programs may have declared.
const Lines declaredSchemes = Split("http|mailto|ftp|irc|tel");

Lines Some(Dice& dice, const Lines& pool, std::size_t most) {
  Lines some(dice.Chance(30) ? 0 : dice.Below(most + 1));
  for (std::string& each : some) each = dice.Spelt(dice.Of(pool));
  return some;
}

void RollDetails(Dice& dice, host::Application& app) {
  app.documentTypes = Some(dice, types, 7);
  app.defaultTypes = Some(dice, types, 3);
  for (const std::string& type : app.documentTypes) {
    if (dice.Chance(30)) app.defaultTypes.push_back(dice.Spelt(type));
  }
  app.anyType = dice.Chance(20);
  app.urlSchemes = Some(dice, schemes, 4);
}

class Maker {
 public:
  Maker(Dice& dice, const std::vector<host::Icon>& icons) : dice_(dice), icons_(icons) {
    dice_.Shuffle(names_);
  }

  // Some go, some are renamed or change what they open, and up to `most` come, in another order.
  host::Catalogue After(const host::Catalogue& catalogue, std::size_t most) {
    std::vector<host::Application> apps;
    for (host::Application app : catalogue.applications()) {
      if (dice_.Chance(20)) continue;
      if (dice_.Chance(15)) app.name = NewName();
      if (dice_.Chance(15)) app.name = dice_.Spelt(app.name);
      if (dice_.Chance(30)) RollDetails(dice_, app);
      apps.push_back(std::move(app));
    }
    for (std::size_t left = dice_.Below(most + 1); left > 0 && apps.size() < 20; --left)
      apps.push_back(NewApplication());
    if (dice_.Chance(50)) dice_.Shuffle(apps);
    host::Catalogue changed;
    for (host::Application& app : apps) changed.Add(std::move(app));
    return changed;
  }

 private:
  // No name is used twice, in whatever spelling; when all are, a number tells them apart.
  std::string NewName() {
    const std::string number = used_ < names_.size() ? "" : std::to_string(used_);
    return dice_.Spelt(number + names_[used_++ % names_.size()]).substr(0, 100);
  }

  host::Application NewApplication() {
    host::Application app;
    app.bundleId = (dice_.Chance(10) ? "自.random." : "random.") + std::to_string(++made_);
    app.name = NewName();
    RollDetails(dice_, app);
    const std::size_t refused = dice_.Chance(10) ? 100 : 15;
    for (std::size_t left = dice_.Chance(5) ? 0 : 1 + dice_.Below(3); left > 0; --left) {
      const host::Icon& icon = dice_.Of(icons_);
      app.icons.push_back(dice_.Chance(refused) ? host::RefusedIcon(icon) : icon);
    }
    return app;
  }

  Dice& dice_;
  const std::vector<host::Icon>& icons_;
  Lines names_ = names;
  std::size_t used_ = 0, made_ = 0;
};

// Entries of other programs below a key, each of which is there with a chance of some percent.
struct Foreign {
  std::size_t percent;
  std::string below, value, text;
};
void Seed(Dice& dice, const std::string& key, const std::vector<Foreign>& entries) {
  for (const Foreign& entry : entries) {
    if (dice.Chance(entry.percent)) hive::PutText(key + entry.below, entry.value, entry.text);
  }
}

// For this user or, as far as other programs can, for the whole machine.
std::string SomeClasses(Dice& dice) {
  return dice.Chance(40) ? "HKLM\\Software\\Classes\\" : host::classesKey + "\\";
}

void SeedForeignEntries(Dice& dice) {
  const std::string classes = host::classesKey + "\\", command = "\\shell\\open\\command";
  const std::string open = "foreign.exe \"%1\"", capabilities = "Software\\Foreign\\Capabilities";
  for (const std::string& type : types) {
    if (dice.Chance(60)) continue;
    const std::string key = SomeClasses(dice) + "." + dice.Spelt(type), progId = "Foreign." + type;
    hive::PutKey(key);
    if (dice.Chance(60)) {
      hive::PutText(key, "", progId);
      hive::PutText(SomeClasses(dice) + progId + command, "", open);
    }
    Seed(dice, key, {{40, "", "PerceivedType", "document"}, {20, "\\ShellNew", "NullFile", ""}});
    Seed(dice, key + "\\OpenWithList", {{40, "\\foreign.exe", "", ""}, {20, "\\notes.exe", "", "notes.exe"}});
    if (dice.Chance(40)) hive::PutData(key + "\\OpenWithProgids", progId, REG_NONE, {});
    if (dice.Chance(20)) hive::PutData(key, "EditFlags", REG_DWORD, "\1\1\1\1");
  }
  // A scheme that somebody has declared stays as it is, even when its description ends like ours: by the icon
  // the withdrawal tells it from ours.
  for (const std::string& scheme : declaredSchemes) {
    if (dice.Chance(50)) continue;
    const std::string key = SomeClasses(dice) + dice.Spelt(scheme);
    hive::PutText(key, "URL Protocol", dice.Chance(50) ? "" : "yes");
    hive::PutText(key + "\\DefaultIcon", "", "foreign.exe");
    Seed(dice, key,
         {{70, "", "", "URL:" + scheme}, {20, "", "", "URL:" + scheme + " (Mac)"}, {80, command, "", open}});
    if (dice.Chance(30)) hive::PutData(classes + scheme, "EditFlags", REG_DWORD, "\2\2\2\2");
  }
  for (const std::string& exe : Split("foreign.exe|Lower (mac).exe|Atlas.exe|Atlas (Mac).exe.old|(Mac).exe"))
    Seed(dice, classes + "Applications\\" + exe,
         {{50, command, "", open}, {50, "\\SupportedTypes", ".txt", ""}});
  for (const std::string& progId : Split("foreign_auto_file|rtf_auto_file|Tsrn.Url.Foreign|Foreign (Mac)"))
    Seed(dice, classes + progId,
         {{50, command, "", "\"" + host::LauncherFolder().substr(0, 20) + "\\" + open}});
  for (const std::string& name : Split("Foreign|Atlas|Elsewhere (mac)")) {
    Seed(dice, host::registeredKey, {{50, "", name, capabilities}});
    Seed(dice, host::tessarineKey + "\\Tessarine Tools\\MacApps\\" + name, {{30, "", "Kept", "yes"}});
  }
  hive::PutText("HKCU\\" + capabilities + "\\URLAssociations", "http", "Foreign.http");
  hive::PutText(host::tessarineKey + "\\Other Product", "InstallLocation", "C:\\Other");
  hive::PutText("HKLM\\Software\\RegisteredApplications", "Foreign", capabilities);

  for (const std::string& folder : {host::LauncherFolder(), host::ShortcutFolder()}) {
    for (const std::string& file : Split("foreign.exe|Foreign (Mac).lnk|Other\\Atlas (Mac).exe"))
      PutFile(folder + "\\..\\" + file, "foreign");
  }
  // Inside the folder it stays while sharing is on, and goes with the folder.
  if (dice.Chance(20)) PutFile(host::LauncherFolder() + "\\foreign.exe", "foreign");
}

void TryOne(Report& report, const Options& options, const std::vector<host::Icon>& icons, std::size_t trial,
            const std::filesystem::path& driveC) {
  Dice dice(options.seed, trial);
  Guest guest(driveC);
  SeedForeignEntries(dice);
  const host::Snapshot before = host::TakeSnapshot();
  const host::Entries elsewhere = Elsewhere();
  host::GuestModel model(before, host::LookAround());
  guest.StartUp();

  Maker maker(dice, icons);
  host::Catalogue catalogue = maker.After({}, 20);
  for (std::size_t round = 1, rounds = 1 + dice.Below(3); round <= rounds; ++round) {
    if (round > 1 && dice.Chance(70)) catalogue = maker.After(catalogue, 3);
    if (dice.Chance(20)) {
      guest.StopCleanly();
      guest.StartUp();
    }
    guest.Share(catalogue);
    const std::uint64_t lists = guest.asked(102);
    guest.CarryOut(host::SharingCommand(true));
    if (guest.asked(102) != lists + 1) throw std::runtime_error("\"on\" did not ask for one list");
    model.On(catalogue);
    RequireNone("on, number " + std::to_string(round), model.Compare(host::TakeSnapshot()));
    report.Count("applications shared", catalogue.applications().size());
    report.Count("\"on\" commands");
  }
  guest.CarryOut(host::SharingCommand(false));
  model.Off();
  const host::Snapshot after = host::TakeSnapshot();
  RequireNone("off", model.Compare(after));
  RequireNone("off, beyond the residue", host::BeyondResidue(before, after));
  if (Elsewhere() != elsewhere) throw std::runtime_error("off, elsewhere in the guest");
  guest.StopCleanly();
  report.Count("catalogues tried");
}

}  // namespace

Tally TryCatalogues(const Options& options) {
  std::vector<host::Icon> icons;  // small ones: their pictures do not matter here
  for (const host::Application& app : options.catalogue.applications()) {
    std::ranges::copy_if(app.icons, std::back_inserter(icons),
                         [](const host::Icon& icon) { return icon.size <= 48 && icon.accepted; });
  }
  return RunCrew(options.jobs, [&](std::size_t job, Report& report) {
    const std::filesystem::path driveC = options.folder / ("catalogues-" + std::to_string(job));
    for (std::size_t trial = 0; trial < trials; ++trial) {
      if (!options.IsFor(job, trial)) continue;
      report.Try("seed " + std::to_string(options.seed) + ", catalogue " + std::to_string(trial),
                 [&] { TryOne(report, options, icons, trial, driveC); });
    }
  });
}

}  // namespace trials
