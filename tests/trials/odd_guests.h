// Odd guests: what is odd about each, what its applications must be like meanwhile, and what may be left of
// it.
#pragma once

#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "trials/guest.h"
#include "trials/replies.h"
#include "trials/trials.h"

namespace trials {

// The command that meets the oddity, and the guest before it: "on" with nothing shared yet, "on" with a
// changed catalogue, "off".
enum class Command { FirstOn, ChangedOn, Off };
using Commands = std::vector<Command>;

// An application in the middle of the host's list that is wrong in some way.
struct Misfit {
  std::string id, name;
  host::Reply icons, details;
};

// A row of the tables. All that is odd is undone after the command.
struct Oddity {
  // Of the applications: each is as if nothing were odd; none is built, and those that are there are as if
  // nothing were odd; or whatever.
  enum class Applications { Right, NotBuilt, Any };
  // What a file or folder is replaced by.
  struct Place {
    std::string path;
    enum Holds { Nothing, File, Folder } holds = Nothing;
    std::string bytes = {};
    bool isPutBack = true;  // afterwards; otherwise the module has to do that
  };

  std::string name;
  Applications applications = Applications::Any;
  Commands commands = {Command::FirstOn, Command::ChangedOn, Command::Off};
  std::set<std::string> touched = {};  // applications of which becomes whatever
  bool isForeseen = false;             // a host::GuestModel says what the command leads to

  std::optional<Place> place = {};
  Lines readOnly = {};  // files, and folders, which are made where they are missing
  Lines running = {};   // programs, whose files nobody may write or delete
  std::string denied = {};
  std::function<void()> make = [] {}, lift = [] {};
  std::optional<Misfit> misfit = {};  // among a hundred

  // What the prescribed behaviour leaves, as parts of the differences' lines, with its reason in the table.
  // Commands with which launchers outlive their application keys: the next "on" finds a valid launcher and
  // builds nothing, fails for want of the key and removes the launcher, which only the one after builds
  // again.
  Commands orphans = {};
  Lines untilOff = {};  // stays until "off"; of a misfit: all that it makes
  Lines forGood = {};   // stays after it
};

// What all odd guests begin as.
struct Setting {
  Setting(const Options& options, const std::filesystem::path& driveC);

  Guest guest;
  host::Catalogue usual, changed, hundred;
  GuestState empty, furnished;  // before and after "on" with the usual catalogue
  host::Snapshot before;        // the empty guest
  host::Snapshot elsewhere;
  host::Surroundings around;
};

std::vector<Oddity> FileOddities(const Setting& setting);
std::vector<Oddity> HostOddities(const Setting& setting);
std::vector<Oddity> RegistryOddities(const Setting& setting);

}  // namespace trials
