// Odd guests: what is odd about each, which applications must be right all the same while it is, and what
// must hold once it no longer is.
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

// What a guest is when it turns odd, and the command that follows: nothing is shared and "on" comes; all is
// shared and "on" comes with the changed catalogue; all is shared and "off" comes.
enum class Road { Empty, Changed, Off };
using Roads = std::vector<Road>;

// Of the applications while the guest is odd: each is as if it were not; no launcher can be built, and one
// that is there is not touched; or whatever.
enum class Fate { Right, NoneNew, Any };

// An application in the middle of the host's list that is wrong in some way.
struct Misfit {
  std::string id, name;
  host::Reply icons, details;
  Kind failing = Kind::List;  // whose control call fails; a list: none
};

struct Oddity {
  using Doing = std::function<void()>;

  std::string name;
  Doing make = [] {}, lift = [] {};
  Fate fate = Fate::Any;
  Roads roads = {Road::Empty, Road::Changed, Road::Off};
  std::set<std::string> touched = {};       // applications of which becomes whatever
  bool foreseen = false;                    // the odd command's outcome is what a host::GuestModel says
  const host::Catalogue* shared = nullptr;  // instead of the usual ones
  std::optional<Misfit> misfit = {};        // among a hundred
  // What the prescribed behaviour leaves, as parts of the differences' lines, with its reason in the table.
  // Roads on which launchers outlive their application keys: "on" finds a valid launcher and builds nothing,
  // fails for want of the key and removes the launcher, and only the next "on" builds it again. An
  // application without types does not even fail: its key comes back without the open command, until "off".
  Roads orphans = {};
  Lines untilOff = {};  // stays until "off"; of a misfit: all that it makes
  Lines forGood = {};   // stays after it
};

// What all odd guests begin as.
struct Setting {
  Setting(const Options& options, const std::filesystem::path& driveC);

  // The entries that an application alone makes in an empty guest.
  host::Snapshot EntriesOf(const host::Application& app) const;

  Guest guest;
  host::Catalogue usual, changed, hundred, thousand;
  GuestState empty, furnished;   // before and after "on" with the usual catalogue
  host::Snapshot before;         // the empty guest
  host::Entries filesOfHundred;  // after "on" with the hundred
  host::Entries elsewhere;
  host::Surroundings around;
};

std::vector<Oddity> FileOddities(const Setting& setting);
std::vector<Oddity> HostOddities(const Setting& setting);
std::vector<Oddity> RegistryOddities(const Setting& setting);

}  // namespace trials
