// The names of the contract as the host knows them, apart from the module's own: "{name} (Mac)" is an
// application's shortcut and registration, "{name} (Mac).exe" its launcher. Paths are those of a snapshot.
#pragma once

#include <algorithm>
#include <string>

#include "host/catalogue.h"
#include "host/guest_view.h"

namespace host {

inline const std::string launcherSuffix = " (Mac)";
inline const std::string programSuffix = " (Mac).exe";
inline const std::string shortcutSuffix = " (Mac).lnk";
inline const std::string claimSuffix = "_auto_file";  // of the ProgID by which a type is claimed
inline const std::string urlProgIdPrefix =
    "Tsrn.Url.";  // of the ProgID that opens an application's addresses
inline const std::string applicationsKey = "HKCU\\Software\\Classes\\Applications";
inline const std::string toolsKey = "HKCU\\SOFTWARE\\Tessarine\\Tessarine Tools";
inline const std::string macAppsKey = "HKCU\\SOFTWARE\\Tessarine\\Tessarine Tools\\MacApps";

// A launcher needs at least one icon that the guest takes.
inline bool CanBeBuilt(const Application& app) {
  return std::any_of(app.icons.begin(), app.icons.end(), [](const Icon& icon) { return icon.accepted; });
}

}  // namespace host
