// Oddities of the guest's folders and files.
#include <filesystem>
#include <stdexcept>

#include "common/handles.h"
#include "host/text.h"
#include "trials/odd_guests.h"

namespace trials {
namespace {

namespace fs = std::filesystem;
using enum Road;

const std::string programFolder = "C:\\Program Files\\Tessarine\\Tools\\Applications";
const std::string templateFile = programFolder + "\\vel_micro_app.exe";

// Without the owner's write bit, which is what the layer goes by.
Oddity ReadOnly(const char* name, const Lines& paths, Fate fate, const Roads& roads) {
  const auto make = [=] {
    for (const std::string& path : paths) {
      if (!fs::exists(HostFile(path))) fs::create_directories(HostFile(path));
      fs::permissions(HostFile(path), fs::perms::owner_write, fs::perm_options::remove);
    }
  };
  const auto lift = [=] {
    for (const std::string& path : paths) {
      if (fs::exists(HostFile(path)))
        fs::permissions(HostFile(path), fs::perms::owner_write, fs::perm_options::add);
    }
  };
  return {name, make, lift, fate, roads};
}

// Something else lies in the place of a file or folder, or nothing, so that no launcher can be built.
Oddity Replaced(const char* name, const std::string& path, const Oddity::Doing& put,
                const Roads& roads = {Empty, Changed, Off}) {
  const fs::path place = HostFile(path), aside = place.string() + ".aside";
  const auto make = [=] {
    if (fs::exists(place)) fs::rename(place, aside);
    put();
  };
  const auto lift = [=] {
    fs::remove_all(place);
    if (fs::exists(aside)) fs::rename(aside, place);
  };
  return {name, make, lift, Fate::NoneNew, roads};
}

// Opens a file as a program that runs has it: nobody may write or delete it.
std::vector<UniqueFile> held;
void Hold(const std::string& path) {
  held.emplace_back(CreateFileW(host::Widen(path).c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!held.back()) throw std::runtime_error("cannot be held: " + path);
}

Oddity::Doing File(const std::string& path, const std::string& bytes) {
  return [=] { PutFile(path, bytes); };
}
Oddity::Doing Folder(const std::string& path) {
  return [=] {
    fs::remove(HostFile(path));
    fs::create_directories(HostFile(path));
  };
}
Oddity::Doing Nothing(const std::string& path) {
  return [=] { fs::remove_all(HostFile(path)); };
}

}  // namespace

std::vector<Oddity> FileOddities(const Setting& setting) {
  const Roads shared = {Changed, Off};
  const std::string launchers = host::LauncherFolder(), shortcuts = host::ShortcutFolder();
  const std::string tools = launchers.substr(0, launchers.rfind('\\'));
  const std::string programs = shortcuts.substr(0, shortcuts.rfind('\\'));
  // Applications that the changed catalogue renames, drops and keeps.
  const auto& apps = setting.usual.applications();
  const std::string kept = apps.at(2).name, launcher = LauncherOf(kept), shortcut = ShortcutOf(kept);
  const Lines three = {LauncherOf(apps.at(0).name), LauncherOf(apps.at(1).name), launcher};

  const auto holdAll = [=] {
    for (const std::string& path : three) Hold(path);
  };
  const auto letGo = [] { held.clear(); };
  const auto putStub = [=] {
    fs::copy_file(HostFile(templateFile), HostFile(launcher), fs::copy_options::overwrite_existing);
  };
  const auto holdStub = [=] {
    putStub();
    Hold(launcher);
  };
  std::vector<Oddity> table = {
      ReadOnly("launcher folder read-only", {launchers}, Fate::NoneNew, {Empty, Changed, Off}),
      {"launchers running", holdAll, letGo, Fate::Right, shared},
      ReadOnly("launcher folder cannot be made", {tools}, Fate::NoneNew, {Empty}),
      ReadOnly("shortcut folder read-only", {shortcuts}, Fate::NoneNew, {Empty, Changed, Off}),
      ReadOnly("shortcut folder cannot be made", {programs}, Fate::NoneNew, {Empty}),
      ReadOnly("launchers read-only", three, Fate::Right, shared),
      Replaced("launcher folder is a file", launchers, File(launchers, "text"), {Empty}),
      Replaced("shortcut folder is a file", shortcuts, File(shortcuts, "text")),
      Replaced("template missing", templateFile, [] {}),
      Replaced("template is no program", templateFile, File(templateFile, "text")),
      Replaced("template is empty", templateFile, File(templateFile, "")),
      Replaced("template is a folder", templateFile, Folder(templateFile)),
      {"launcher running that must be rebuilt", holdStub, letGo, Fate::Right, {Changed}, {kept}},
      {"launcher without its bundle identifier", putStub, [] {}, Fate::Right, shared},
      {"launcher is no program", File(launcher, "text"), [] {}, Fate::Right, shared},
      {"launcher is empty", File(launcher, ""), [] {}, Fate::Right},
      {"launcher gone", Nothing(launcher), [] {}, Fate::Right, shared},
      {"folder in a launcher's place",
       Folder(launcher),
       Nothing(launcher),
       Fate::Right,
       {Empty, Changed},
       {kept}},
      {"folder in a shortcut's place", Folder(shortcut), Nothing(shortcut), Fate::Right, {Empty}, {kept}},
  };
  for (std::size_t launchersStay : {0u, 1u}) table[launchersStay].orphans = {Off};
  return table;
}

}  // namespace trials
