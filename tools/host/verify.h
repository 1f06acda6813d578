// What the guest must hold, derived from the catalogues that the host has shared, without the module's code.
// The model is fed every command in order: some entries outlive their application by design, so what the
// guest may hold depends on its history.
#pragma once

#include <string>
#include <vector>

#include "host/catalogue.h"
#include "host/guest_view.h"

namespace host {

class GuestModel {
 public:
  // Starts from what the guest holds now, whoever made it.
  GuestModel(Snapshot start, Surroundings surroundings);

  void On(const Catalogue& catalogue);
  void Off();

  // One line per difference; contents of files count for launchers only, as far as their resources go.
  std::vector<std::string> Compare(const Snapshot& guest) const;
  const Snapshot& expected() const { return state_; }

 private:
  bool Has(const std::string& path) const { return state_.registry.contains(path); }
  void SetText(const std::string& key, const std::string& value, const std::string& text);
  void SetData(const std::string& key, const std::string& value, const std::string& data);

  bool Register(const Application& app);
  bool RegisterTypes(const Application& app, const std::string& appKey);
  bool RegisterSchemes(const Application& app, const std::string& appKey);
  void ClaimDefault(const std::string& type, const std::string& exe);
  bool HasDefault(const std::string& extension) const;
  void Unregister(const std::string& fullName);
  void RemoveApplication(const std::string& name);
  std::string PathOfLauncher(const std::string& exe) const { return around_.launcherFolder + "\\" + exe; }

  Snapshot state_;
  Surroundings around_;
};

// One line per file or entry that is missing, wrong or unexpected, the files first.
std::vector<std::string> Differences(const Snapshot& expected, const Snapshot& found);

// The applications of the catalogue that have no launcher.
std::vector<std::string> Unmirrored(const Catalogue& catalogue, const Snapshot& guest);

// What differs after "off" from the guest before "on" beyond the documented residue: the extensions' keys
// with their OpenWithProgids values and OpenWithList offers, and the empty key above the capabilities.
std::vector<std::string> BeyondResidue(const Snapshot& before, const Snapshot& after);

}  // namespace host
