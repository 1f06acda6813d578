// Odd guests: what is odd about each, which applications must be right all the same while it is, and what
// must hold once it no longer is.
#pragma once

#include <platform/control.h>

#include <atomic>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "host/guest_view.h"
#include "trials/guest_room.h"
#include "trials/trials.h"

namespace trials {

// What a guest is when it turns odd, and the command that follows: nothing is shared and "on" comes; all is
// shared and "on" comes with the changed catalogue; all is shared and "off" comes.
enum class Road { Empty, Changed, Off };

// Of one application while the guest is odd: as if it were not, without a launcher, or whatever.
enum class Fate { Right, Missing, Any };

// One that no catalogue takes, behind the others in the host's list.
struct Extra {
  std::string bundleId, name;
};

class Stage {
 public:
  Stage(const Options& options, const std::filesystem::path& driveC);

  host::Catalogue usual, changed;
  GuestState empty, furnished;  // before and after "on" with the usual catalogue
  host::Snapshot before;        // of the empty guest
  std::map<std::string, std::string> elsewhere;
  host::Surroundings around;
  Rig rig;

  // The entries that an application alone makes in an empty guest.
  host::Snapshot EntriesOf(const host::Application& app) const;
  // Opens a file as a program that runs has it: nobody may write or delete it.
  void Hold(const std::string& guestPath);
  void LetGo();

  // Returns when the module has announced itself: whether a command comes before or after decides on its
  // calls.
  void Start();

  // Answers from one of the catalogues, and from the extras behind it.
  void Share(const host::Catalogue& catalogue, const std::vector<Extra>& extras);

 private:
  std::atomic<std::uint64_t> announcements_ = 0;
  std::vector<HANDLE> held_;
};

struct Oddity {
  using Doing = std::function<void(Stage&)>;

  std::string name;
  Doing make = [](Stage&) {};
  Doing lift = [](Stage&) {};
  std::function<Fate(const host::Application&, Road, bool hadLauncher)> fate =
      [](const host::Application&, Road, bool) { return Fate::Any; };
  std::vector<Road> roads = {Road::Empty, Road::Changed, Road::Off};
  bool foreseen = false;                       // the odd command's outcome is what a host::GuestModel says
  std::vector<Extra> extras = {};              // listed by the odd command
  std::optional<host::Catalogue> shared = {};  // by the odd command, instead of the usual ones
  // What the prescribed behaviour leaves, as parts of the differences' lines, with its reason in the table.
  // Roads on which launchers outlive their application keys: "on" finds a valid launcher and builds nothing,
  // fails for want of the key and removes the launcher, and only the next "on" builds it again. An
  // application without types does not even fail: its key comes back without the open command, until "off".
  std::vector<Road> orphans = {};
  std::vector<std::string> untilOff = {};  // stays until "off"
  std::vector<std::string> forGood = {};   // stays after it
};

inline std::string LauncherOf(const std::string& name) {
  return host::LauncherFolder() + "\\" + name + " (Mac).exe";
}
inline std::string ShortcutOf(const std::string& name) {
  return host::ShortcutFolder() + "\\" + name + " (Mac).lnk";
}

// What fates go with most oddities: nothing keeps an application from being right; no launcher can be built,
// and one that is there is not touched.
Fate AllRight(const host::Application& app, Road road, bool hadLauncher);
Fate NewOnesMissing(const host::Application& app, Road road, bool hadLauncher);

std::vector<Oddity> FileOddities(const Stage& stage);
std::vector<Oddity> HostOddities(const Stage& stage);
std::vector<Oddity> RegistryOddities(const Stage& stage);
std::vector<Oddity> DeniedKeys(const Stage& stage);    // each key of the furnished guest
std::vector<Oddity> SpoiltValues(const Stage& stage);  // each value that the module has made

}  // namespace trials
