// Oddities of the guest's folders and files, and of what the host says.
#include "trials/odd_guests.h"

#include <algorithm>
#include <filesystem>
#include <memory>
#include <stdexcept>

namespace trials {
namespace {

namespace fs = std::filesystem;

const std::string programFolder = "C:\\Program Files\\Tessarine\\Tools\\Applications";
const std::string templateFile = programFolder + "\\vel_micro_app.exe";

// The owner's write bit, which is what the layer goes by.
Oddity::Doing Deny(const std::string& guestPath, bool deny) {
  return [=](Stage&) {
    if (!deny && !fs::exists(HostFile(guestPath))) return;
    if (deny) fs::create_directories(HostFile(guestPath).parent_path());
    if (deny && !fs::exists(HostFile(guestPath))) fs::create_directory(HostFile(guestPath));
    fs::permissions(HostFile(guestPath), fs::perms::owner_write,
                    deny ? fs::perm_options::remove : fs::perm_options::add);
  };
}

// Puts something else in the place of a file or folder, and back again.
Oddity::Doing PutAside(const std::string& guestPath, const Oddity::Doing& put) {
  return [=](Stage& stage) {
    if (fs::exists(HostFile(guestPath)))
      fs::rename(HostFile(guestPath), HostFile(guestPath).string() + ".aside");
    put(stage);
  };
}
Oddity::Doing PutBack(const std::string& guestPath) {
  return [=](Stage&) {
    fs::remove_all(HostFile(guestPath));
    const fs::path aside = HostFile(guestPath).string() + ".aside";
    if (fs::exists(aside)) fs::rename(aside, HostFile(guestPath));
  };
}
Oddity::Doing MakeFile(const std::string& guestPath, const std::string& bytes = "text") {
  return [=](Stage&) { PutFile(guestPath, bytes); };
}
Oddity::Doing MakeFolder(const std::string& guestPath) {
  return [=](Stage&) { fs::create_directories(HostFile(guestPath)); };
}

void ReplaceByFolder(const std::string& guestPath) {
  fs::remove(HostFile(guestPath));
  fs::create_directories(HostFile(guestPath));
}

auto Only(const std::string& name, Fate fate) {
  return [=](const host::Application& app, Road, bool) { return app.name == name ? fate : Fate::Right; };
}

// From the first call of the function on there is no room for what it writes.
Oddity FullDisk(const std::string& function) {
  return {.name = "disk full: " + function,
          .make =
              [=](Stage&) {
                platform::FaultPlan plan;
                plan.action = platform::FaultPlan::Action::Fail;
                plan.call = 1;
                plan.function = function;
                plan.repeat = true;
                plan.error = ERROR_DISK_FULL;
                platform::ArmFaultPlan(plan);
              },
          .lift =
              [=](Stage&) {
                platform::DisarmFaultPlan();
                if (platform::CallsFailed() == 0) throw std::runtime_error("the disk was never full");
              },
          .roads = {Road::Empty, Road::Changed}};
}

}  // namespace

Fate AllRight(const host::Application&, Road, bool) {
  return Fate::Right;
}
Fate NewOnesMissing(const host::Application&, Road road, bool hadLauncher) {
  return hadLauncher || road == Road::Off ? Fate::Right : Fate::Missing;
}

std::vector<Oddity> FileOddities(const Stage& stage) {
  const std::string launchers = host::LauncherFolder(), shortcuts = host::ShortcutFolder();
  const std::string tools = launchers.substr(0, launchers.rfind('\\'));
  const std::string programs = shortcuts.substr(0, shortcuts.rfind('\\'));
  // Applications that the changed catalogue keeps, renames and drops.
  const auto& apps = stage.usual.applications();
  const std::string kept = apps.at(2).name, renamed = apps.at(0).name, dropped = apps.at(1).name;
  const std::string keptLauncher = LauncherOf(kept), keptShortcut = ShortcutOf(kept);

  const auto holdAll = [=](Stage& s) {
    for (const std::string& name : {kept, renamed, dropped}) s.Hold(LauncherOf(name));
  };
  const auto letGo = [](Stage& s) { s.LetGo(); };

  std::vector<Oddity> table = {
      {.name = "launcher folder read-only",
       .make = Deny(launchers, true),
       .lift = Deny(launchers, false),
       .fate = NewOnesMissing,
       .orphans = {Road::Off}},
      {.name = "launcher folder cannot be made",
       .make = Deny(tools, true),
       .lift = Deny(tools, false),
       .fate = NewOnesMissing,
       .roads = {Road::Empty}},
      {.name = "launcher folder is a file",
       .make = PutAside(launchers, MakeFile(launchers)),
       .lift = PutBack(launchers),
       .fate = NewOnesMissing,
       .roads = {Road::Empty}},
      {.name = "shortcut folder is a file",
       .make = PutAside(shortcuts, MakeFile(shortcuts)),
       .lift = PutBack(shortcuts),
       .fate = NewOnesMissing},
      {.name = "shortcut folder read-only",
       .make = Deny(shortcuts, true),
       .lift = Deny(shortcuts, false),
       .fate = NewOnesMissing},
      {.name = "shortcut folder cannot be made",
       .make = Deny(programs, true),
       .lift = Deny(programs, false),
       .fate = NewOnesMissing,
       .roads = {Road::Empty}},
      {.name = "launchers running",
       .make = holdAll,
       .lift = letGo,
       .fate = AllRight,
       .roads = {Road::Changed, Road::Off},
       .orphans = {Road::Off}},
      {.name = "launcher running that must be rebuilt",
       .make =
           [=](Stage& s) {
             fs::copy_file(HostFile(templateFile), HostFile(keptLauncher),
                           fs::copy_options::overwrite_existing);
             s.Hold(keptLauncher);
           },
       .lift = letGo,
       .fate = Only(kept, Fate::Any),
       .roads = {Road::Changed}},
      {.name = "launcher without its bundle identifier",
       .make =
           [=](Stage&) {
             fs::copy_file(HostFile(templateFile), HostFile(keptLauncher),
                           fs::copy_options::overwrite_existing);
           },
       .fate = AllRight,
       .roads = {Road::Changed, Road::Off}},
      {.name = "launcher is no program",
       .make = MakeFile(keptLauncher),
       .fate = AllRight,
       .roads = {Road::Changed, Road::Off}},
      {.name = "launcher is empty", .make = MakeFile(keptLauncher, ""), .fate = AllRight},
      {.name = "launchers read-only",
       .make =
           [=](Stage& s) {
             for (const auto& name : {kept, renamed, dropped}) Deny(LauncherOf(name), true)(s);
           },
       .lift =
           [=](Stage& s) {
             for (const auto& name : {kept, renamed, dropped}) Deny(LauncherOf(name), false)(s);
           },
       .fate = AllRight,
       .roads = {Road::Changed, Road::Off}},
      {.name = "launcher gone",
       .make = [=](Stage&) { fs::remove(HostFile(keptLauncher)); },
       .fate = AllRight,
       .roads = {Road::Changed, Road::Off}},
      {.name = "folder in a launcher's place",
       .make = [=](Stage&) { ReplaceByFolder(keptLauncher); },
       .lift = [=](Stage&) { fs::remove_all(HostFile(keptLauncher)); },
       .fate = Only(kept, Fate::Any),
       .roads = {Road::Empty, Road::Changed}},
      {.name = "folder in a shortcut's place",
       .make = [=](Stage&) { ReplaceByFolder(keptShortcut); },
       .lift = [=](Stage&) { fs::remove_all(HostFile(keptShortcut)); },
       .fate = Only(kept, Fate::Any),
       .roads = {Road::Empty}},
      {.name = "template missing",
       .make = PutAside(templateFile, [](Stage&) {}),
       .lift = PutBack(templateFile),
       .fate = NewOnesMissing},
      {.name = "template is no program",
       .make = PutAside(templateFile, MakeFile(templateFile)),
       .lift = PutBack(templateFile),
       .fate = NewOnesMissing},
      {.name = "template is empty",
       .make = PutAside(templateFile, MakeFile(templateFile, "")),
       .lift = PutBack(templateFile),
       .fate = NewOnesMissing},
      {.name = "template is a folder",
       .make = PutAside(templateFile, MakeFolder(templateFile)),
       .lift = PutBack(templateFile),
       .fate = NewOnesMissing},
  };
  return table;
}

std::vector<Oddity> HostOddities(const Stage& stage) {
  host::Catalogue thousand;
  for (int i = 0; i < 1000; ++i) {
    host::Application app = stage.usual.applications().at(static_cast<std::size_t>(i) % 10);
    constexpr char digits[] = "0123456789abcdefghijklmnopqrstuvwxyz";
    app.bundleId = std::to_string(i);
    app.name = {digits[i / 36], digits[i % 36]};  // all of them fit in one reply
    thousand.Add(std::move(app));
  }
  std::vector<Oddity> table = {
      // A claim stays with whoever came last, also when that one goes.
      {.name = "a thousand applications",
       .roads = {Road::Empty, Road::Changed},
       .foreseen = true,
       .shared = std::move(thousand),
       .untilOff = {"_auto_file\\shell\\open\\command"}},
  };
  for (const char* function :
       {"CopyFileW", "BeginUpdateResourceW", "UpdateResourceW", "EndUpdateResourceW", "IPersistFile::Save",
        "SHCreateDirectoryExW", "RegCreateKeyExW", "RegSetValueExW", "SHSetValueW"}) {
    table.push_back(FullDisk(function));
  }
  const auto listed = [&](const std::string& what, const std::string& name,
                          std::vector<std::string> forGood = {},
                          const std::string& untilOff = "Classes\\odd") {
    table.push_back({.name = what,
                     .fate = AllRight,
                     .roads = {Road::Empty, Road::Changed},
                     .extras = {{"example.odd", name}},
                     .untilOff = {"Classes\\odd", untilOff},  // claimed and declared by one that went
                     .forGood = std::move(forGood)});
  };
  for (const std::size_t length : {240u, 245u, 246u, 250u, 255u, 5000u}) {
    listed("a name of " + std::to_string(length) + " characters", std::string(length, 'n'));
  }
  for (const char c : std::string("<>:\"/|?*\x01\x1f"))
    listed("a name with " + std::string(1, c), std::string("a") + c + "b");
  for (const char* name :
       {"", " ", ".", "..", "a.", "a/", "CON", "a\\b", "a\\", "\xff\xfe", "a\xc3", "%s%n", ".exe"}) {
    listed("the name \"" + std::string(name) + "\"", name);
  }
  // The sweep takes it for "a".
  listed("a name with a slash first", "/a", {}, "/a (Mac)");
  // Names are taken as they are, so one that is a path leads out of the module's folders, and where neither
  // the sweep nor the withdrawal looks: what it made stays.
  listed("a name that leads up", "..\\up", {"up (Mac)", "Applications\\..", "Tsrn.Url...", "MacApps\\.."});
  listed("a name with a backslash first", "\\lead", {"lead (Mac)", "Tsrn.Url."});
  return table;
}

}  // namespace trials
