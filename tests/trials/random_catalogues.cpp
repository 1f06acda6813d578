// Random catalogues, shared twice and withdrawn again in a guest that is full of other programs' entries. A
// trial is told by seed and number.
#include "host/guest_view.h"
#include "host/verify.h"
#include "trials/dice.h"
#include "trials/guest_room.h"
#include "trials/trials.h"

namespace trials {
namespace {

using host::classesKey;

constexpr std::size_t trials = 1000;

const std::string names[] = {
    "Atlas",
    "Brush",
    "Café",
    "星図",
    "A",
    "A (Mac)",
    "A (Mac) (Mac)",
    "tool.exe",
    "Comma, Inc.",
    "x  y",
    "100%",
    "Ünïcode",
    "λ-Kalkül",
    "🎨 Paint",
    "-",
    "'quoted'",
    "Foo & Bar",
    "#1",
    "~",
    ".hidden",
    "(Mac)",
    "Mac",
    "Tsrn.Url.A",
    "[brackets]",
    "{braces}",
    "a=b;c",
    "Applications",
    "_auto_file",
    "%1",
    "^0041",
    "名前.lnk",
    "A rather long name that takes nearly all of the hundred bytes which a catalogue allows for one name"};
const std::string types[] = {"txt",     "md",    "pdf", "png",        "jpeg", "html", "exe",    "com",
                             "lnk",     "ico",   "BAT", "a",          "文書", "été",  "tar.gz", "x y",
                             "c++",     "_",     "%1",  "mp3",        "wav",  "doc",  "docx",   "key",
                             "numbers", "pages", "^2",  "_auto_file", "(Mac)"};
const std::string schemes[] = {"http",    "https", "mailto", "ftp", "sms", "x-atlas",      "x-brush",
                               "web+foo", "äöü",   "irc",    "tel", "a",   "scheme (Mac)", "x_auto_file"};
// Schemes, in the spelling above, that other programs may have declared.
const std::string declaredSchemes[] = {"http", "mailto", "ftp", "irc", "tel"};

std::vector<std::string> Some(Dice& dice, std::span<const std::string> pool, std::size_t most) {
  std::vector<std::string> some(dice.Chance(30) ? 0 : dice.Below(most + 1));
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
    names_.assign(std::begin(names), std::end(names));
    dice_.Shuffle(names_);
  }

  host::Catalogue First() {
    host::Catalogue catalogue;
    for (std::size_t left = dice_.Below(21); left > 0; --left) catalogue.Add(NewApplication());
    return catalogue;
  }

  // Some go, some are renamed or change what they open, some come, in another order.
  host::Catalogue After(const host::Catalogue& catalogue) {
    std::vector<host::Application> apps;
    for (host::Application app : catalogue.applications()) {
      if (dice_.Chance(20)) continue;
      if (dice_.Chance(15)) app.name = NewName();
      if (dice_.Chance(15)) app.name = dice_.Spelt(app.name);
      if (dice_.Chance(30)) RollDetails(dice_, app);
      apps.push_back(std::move(app));
    }
    for (std::size_t left = dice_.Below(4); left > 0 && apps.size() < 20; --left)
      apps.push_back(NewApplication());
    if (dice_.Chance(50)) dice_.Shuffle(apps);
    host::Catalogue changed;
    for (host::Application& app : apps) changed.Add(std::move(app));
    return changed;
  }

 private:
  // No name is used twice, in whatever spelling; when all are, a number tells them apart.
  std::string NewName() {
    const std::string& name = names_[used_ % names_.size()];
    const std::string number = used_ < names_.size() ? "" : std::to_string(used_);
    ++used_;
    return dice_.Spelt(number + name).substr(0, 100);
  }

  host::Application NewApplication() {
    host::Application app;
    app.bundleId = (dice_.Chance(10) ? "自.random." : "random.") + std::to_string(++made_);
    app.name = NewName();
    RollDetails(dice_, app);
    for (std::size_t left = dice_.Chance(5) ? 0 : 1 + dice_.Below(3); left > 0; --left) {
      app.icons.push_back(dice_.Of(icons_));
    }
    const bool allRefused = dice_.Chance(10);
    for (host::Icon& icon : app.icons) {
      if (allRefused || dice_.Chance(15)) icon = host::RefusedIcon(icon);
    }
    return app;
  }

  Dice& dice_;
  const std::vector<host::Icon>& icons_;
  std::vector<std::string> names_;
  std::size_t used_ = 0, made_ = 0;
};

// What other programs have made of an extension: for this user or, as far as they can, for the whole machine.
void SeedExtension(Dice& dice, const std::string& type) {
  const bool machine = dice.Chance(40);
  const std::string classes = machine ? "HKLM\\Software\\Classes" : classesKey;
  const std::string key = classes + "\\." + dice.Spelt(type), progId = "Foreign." + type;
  PutKey(key);
  if (dice.Chance(60)) {
    PutText(key, "", progId);
    PutText((dice.Chance(50) ? classesKey : classes) + "\\" + progId + "\\shell\\open\\command", "",
            "\"C:\\Foreign\\foreign.exe\" \"%1\"");
  }
  if (dice.Chance(40)) PutText(key, "PerceivedType", "document");
  if (dice.Chance(40)) PutKey(key + "\\OpenWithList\\foreign.exe");
  if (dice.Chance(20)) PutText(key + "\\OpenWithList\\notes.exe", "", "notes.exe");
  if (dice.Chance(40)) PutData(key + "\\OpenWithProgids", progId, REG_NONE, {});
  if (dice.Chance(20)) PutText(key + "\\ShellNew", "NullFile", "");
  if (dice.Chance(20)) PutData(key, "EditFlags", REG_DWORD, std::string(4, '\1'));
}

// A scheme that somebody has declared stays as it is, even when its description ends like ours.
void SeedScheme(Dice& dice, const std::string& scheme) {
  const bool machine = dice.Chance(40);
  const std::string key = (machine ? "HKLM\\Software\\Classes\\" : classesKey + "\\") + dice.Spelt(scheme);
  PutText(key, "URL Protocol", dice.Chance(50) ? "" : "yes");
  if (dice.Chance(70)) PutText(key, "", "URL:" + scheme + " protocol");
  if (dice.Chance(70) || machine) PutText(key + "\\shell\\open\\command", "", "foreign.exe \"%1\"");
  if (dice.Chance(20)) {
    PutText(key, "", "URL:" + scheme + " (Mac)");
    PutKey(key + "\\DefaultIcon");  // by which the withdrawal tells it from ours
  }
  if (machine && dice.Chance(30))
    PutData(classesKey + "\\" + scheme, "EditFlags", REG_DWORD, std::string(4, '\2'));
}

void SeedForeignEntries(Dice& dice) {
  for (const std::string& type : types) {
    if (dice.Chance(40)) SeedExtension(dice, type);
  }
  for (const std::string& scheme : declaredSchemes) {
    if (dice.Chance(50)) SeedScheme(dice, scheme);
  }
  for (const char* exe :
       {"foreign.exe", "Lower (mac).exe", "Atlas.exe", "Atlas (Mac).exe.old", "(Mac).exe"}) {
    if (!dice.Chance(50)) continue;
    PutText(classesKey + "\\Applications\\" + exe + "\\shell\\open\\command", "", "foreign.exe \"%1\"");
    PutData(classesKey + "\\Applications\\" + exe + "\\SupportedTypes", ".txt", REG_NONE, {});
  }
  for (const char* progId : {"foreign_auto_file", "rtf_auto_file", "Tsrn.Url.Foreign", "Foreign (Mac)"}) {
    if (!dice.Chance(50)) continue;
    PutText(classesKey + "\\" + progId + "\\shell\\open\\command", "",
            "\"" + host::LauncherFolder().substr(0, 20) + "\\foreign.exe\" \"%1\"");
  }
  for (const char* name : {"Foreign", "Atlas", "Elsewhere (mac)"}) {
    if (dice.Chance(50)) PutText(host::registeredKey, name, "Software\\Foreign\\Capabilities");
    if (dice.Chance(30)) PutText(host::tessarineKey + "\\Tessarine Tools\\MacApps\\" + name, "Kept", "yes");
  }
  PutText("HKCU\\Software\\Foreign\\Capabilities\\URLAssociations", "http", "Foreign.http");
  PutText(host::tessarineKey + "\\Other Product", "InstallLocation", "C:\\Other");
  PutText("HKLM\\Software\\RegisteredApplications", "Foreign", "Software\\Foreign\\Capabilities");

  for (const std::string& folder : {host::LauncherFolder(), host::ShortcutFolder()}) {
    PutFile(folder + "\\..\\foreign.exe", "MZ, but foreign");
    PutFile(folder + "\\..\\Foreign (Mac).lnk", "a link");
    PutFile(folder + "\\..\\Other\\Atlas (Mac).exe", "deep");
  }
  // Inside the folder it stays while sharing is on, and goes with the folder.
  if (dice.Chance(20)) PutFile(host::LauncherFolder() + "\\foreign.exe", "MZ, but foreign");
}

void TryOne(Report& report, const Options& options, const std::vector<host::Icon>& icons, std::size_t trial,
            const std::filesystem::path& driveC) {
  Dice dice(options.seed, trial);
  Rig rig(driveC);
  SeedForeignEntries(dice);
  const host::Snapshot before = host::TakeSnapshot();
  const std::map<std::string, std::string> elsewhere = Elsewhere();
  host::GuestModel model(before, host::LookAround());
  if (!rig.Start()) throw std::runtime_error("the module does not start");

  Maker maker(dice, icons);
  host::Catalogue catalogue = maker.First();
  for (std::size_t round = 0, rounds = 1 + dice.Below(3); round < rounds; ++round) {
    if (round > 0 && dice.Chance(70)) catalogue = maker.After(catalogue);
    if (dice.Chance(20)) StopAndCount(rig), rig.Start();
    rig.Share(&catalogue);
    const std::uint64_t lists = rig.listsAsked();
    CarryOut(rig, host::SharingCommand(true));
    if (rig.listsAsked() != lists + 1) throw std::runtime_error("\"on\" did not ask for one list");
    model.On(catalogue);
    RequireNone("on, number " + std::to_string(round + 1), model.Compare(host::TakeSnapshot()));
    report.Count("applications shared", catalogue.applications().size());
    report.Count("\"on\" commands");
  }
  CarryOut(rig, host::SharingCommand(false));
  model.Off();
  const host::Snapshot after = host::TakeSnapshot();
  RequireNone("off", model.Compare(after));
  RequireNone("off, beyond the residue", host::BeyondResidue(before, after));
  RequireNone("off, elsewhere in the guest", Differences(elsewhere, Elsewhere()));
  StopAndCount(rig);
  report.Count("catalogues tried");
}

}  // namespace

Tally TryCatalogues(const Options& options) {
  std::vector<host::Icon> icons;  // small ones: their pictures do not matter here
  for (const host::Application& app : options.catalogue.applications()) {
    for (const host::Icon& icon : app.icons) {
      if (icon.size <= 48 && icon.accepted) icons.push_back(icon);
    }
  }
  return RunCrew(options.jobs, [&](std::size_t job, Report& report) {
    const std::filesystem::path driveC = options.folder / ("catalogues-" + std::to_string(job));
    for (std::size_t trial = job * options.every; trial < trials; trial += options.jobs * options.every) {
      const std::string name =
          "seed " + std::to_string(options.seed) + ", catalogue " + std::to_string(trial);
      Try(report, name, [&] { TryOne(report, options, icons, trial, driveC); });
    }
  });
}

}  // namespace trials
