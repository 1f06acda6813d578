// What the entries of a guest's registry are, whose they are, and what the shell makes of them. Names are
// those of the contract as the host knows them, apart from the module's own: "{name} (Mac)" is an
// application's shortcut and registration, "{name} (Mac).exe" its launcher. Paths are those of a snapshot.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "guest/guest_view.h"

namespace host {

inline const std::string launcherSuffix = " (Mac)";
inline const std::string programSuffix = " (Mac).exe";
inline const std::string shortcutSuffix = " (Mac).lnk";
inline const std::string claimSuffix = "_auto_file";     // of the ProgID by which a type is claimed
inline const std::string urlProgIdPrefix = "Tsrn.Url.";  // of the one that opens an application's addresses
inline const std::string applicationsKey = "HKCU\\Software\\Classes\\Applications";
inline const std::string toolsKey = "HKCU\\SOFTWARE\\Tessarine\\Tessarine Tools";
inline const std::string macAppsKey = "HKCU\\SOFTWARE\\Tessarine\\Tessarine Tools\\MacApps";

std::string PathOfLauncher(const std::string& name);
std::string PathOfShortcut(const std::string& name);
std::string WithoutEnd(const std::string& text, const std::string& end);

// What an entry is, if it carries the mark of an application.
struct Place {
  std::string owner;     // the application's name; empty when the entry does not tell
  std::string what;      // "the offer for .pgn"
  bool lasting = false;  // outlives its application while sharing is on
  bool residue = false;  // outlives sharing, too
  std::string scheme{};  // that is declared here; `owner` is the first of those that can open it
};
std::optional<Place> PlaceOf(const Entries& registry, const std::string& path,
                             const std::string& launcherFolder);

// Does the key declare a scheme as a launcher's registration does?
bool IsOurScheme(const Entries& registry, const std::string& key);

// Who opens a file of a type, or an address of a scheme.
struct Opening {
  std::string why;                   // "claimed", "default", "foreign" or "nobody"
  std::string application;           // its name; empty when none of the host's opens it
  std::string otherwise;             // who or what then: "a program of the machine"
  std::vector<std::string> offered;  // the applications that are offered for it
};
Opening WhoOpens(const Snapshot& guest, const Surroundings& around,
                 const std::string& what);  // ".pgn", "go:"

}  // namespace host
