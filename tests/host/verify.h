// What the guest must hold after all that the host has shared. The model is fed every command in order: some
// entries outlive their application by design, so what the guest may hold depends on its history.
#pragma once

#include <string>
#include <vector>

#include "host/mirror.h"

namespace host {

class GuestModel : public Mirror {
 public:
  using Mirror::Mirror;

  void On(const Catalogue& catalogue);
  void Off();

  // One line per difference; contents of files count for launchers only, as far as their resources go.
  std::vector<std::string> Compare(const Snapshot& guest) const;

 private:
  void Unregister(const std::string& fullName);
  void RemoveApplication(const std::string& name);
};

// One line per file or entry that is missing, wrong or unexpected, the files first.
std::vector<std::string> Differences(const Snapshot& expected, const Snapshot& found);

// What differs after "off" from the guest before "on" beyond the documented residue: the extensions' keys
// with their OpenWithProgids values and OpenWithList offers, and the empty key above the capabilities.
std::vector<std::string> BeyondResidue(const Snapshot& before, const Snapshot& after);

}  // namespace host
