// Oddities of the guest's folders and files.
#include "trials/odd_guests.h"

namespace trials {
namespace {

using enum Command;
using enum Oddity::Applications;
using Place = Oddity::Place;

Oddity ReadOnly(const char* name, const Lines& paths, Oddity::Applications applications,
                const Commands& commands) {
  return {.name = name, .applications = applications, .commands = commands, .readOnly = paths};
}

Oddity Running(const char* name, const Lines& programs) {
  return {.name = name, .applications = Right, .commands = {ChangedOn, Off}, .running = programs};
}

// Nothing can be built while something else lies in the place.
Oddity Replaced(const char* name, const Place& place, const Commands& commands = {FirstOn, ChangedOn, Off}) {
  return {.name = name, .applications = NotBuilt, .commands = commands, .place = place};
}

// A launcher that the module has to see to by itself.
Oddity Spoilt(const char* name, const std::string& launcher, Place::Holds holds, const std::string& bytes) {
  return {.name = name,
          .applications = Right,
          .commands = {ChangedOn, Off},
          .place = Place{launcher, holds, bytes, false}};
}

// A folder in the place of a file of one application.
Oddity FolderFor(const char* name, const std::string& path, const std::string& application) {
  return {.name = name,
          .applications = Right,
          .commands = {FirstOn},
          .touched = {application},
          .place = Place{path, Place::Folder}};
}

}  // namespace

std::vector<Oddity> FileOddities(const Setting& setting) {
  const std::string launchers = host::LauncherFolder(), shortcuts = host::ShortcutFolder();
  const std::string tools = launchers.substr(0, launchers.rfind('\\'));
  const std::string programs = shortcuts.substr(0, shortcuts.rfind('\\'));
  const std::string stub = "C:\\Program Files\\Tessarine\\Tools\\Applications\\vel_micro_app.exe";
  const std::string stubBytes = host::ReadGuestFile(stub).value();
  // Applications that the changed catalogue renames, drops and keeps.
  const auto& apps = setting.usual.applications();
  const std::string kept = apps.at(2).name, launcher = LauncherOf(kept);
  const Lines three = {LauncherOf(apps.at(0).name), LauncherOf(apps.at(1).name), launcher};

  std::vector<Oddity> table = {
      ReadOnly("launcher folder read-only", {launchers}, NotBuilt, {FirstOn, ChangedOn, Off}),
      Running("launchers running", three),
      ReadOnly("launcher folder cannot be made", {tools}, NotBuilt, {FirstOn}),
      ReadOnly("shortcut folder read-only", {shortcuts}, NotBuilt, {FirstOn, ChangedOn, Off}),
      ReadOnly("shortcut folder cannot be made", {programs}, NotBuilt, {FirstOn}),
      ReadOnly("launchers read-only", three, Right, {ChangedOn, Off}),
      Replaced("launcher folder is a file", {launchers, Place::File, "text"}, {FirstOn}),
      Replaced("shortcut folder is a file", {shortcuts, Place::File, "text"}),
      Replaced("template missing", {stub}),
      Replaced("template is no program", {stub, Place::File, "text"}),
      Replaced("template is empty", {stub, Place::File}),
      Replaced("template is a folder", {stub, Place::Folder}),
      Spoilt("launcher without its bundle identifier", launcher, Place::File, stubBytes),
      Spoilt("launcher is no program", launcher, Place::File, "text"),
      Spoilt("launcher is empty", launcher, Place::File, ""),
      Spoilt("launcher gone", launcher, Place::Nothing, ""),
      FolderFor("folder in a launcher's place", launcher, kept),
      FolderFor("folder in a shortcut's place", ShortcutOf(kept), kept),
      Spoilt("launcher running that must be rebuilt", launcher, Place::File, stubBytes),
  };
  for (const std::size_t launchersStay : {0u, 1u}) table[launchersStay].orphans = {Off};
  table.back().commands = {ChangedOn};
  table.back().running = {launcher};
  table.back().touched = {kept};
  return table;
}

}  // namespace trials
