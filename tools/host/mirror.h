// What a guest holds that has mirrored a catalogue, derived without the module's code.
#pragma once

#include <string>

#include "guest/guest_view.h"
#include "host/catalogue.h"

namespace host {

class Mirror {
 public:
  // Starts from what the guest holds now, whoever made it.
  Mirror(Snapshot start, Surroundings surroundings);

  void On(const Catalogue& catalogue);
  const Snapshot& expected() const { return state_; }

 protected:
  // False when the registration fails part-way.
  bool Register(const Application& app);
  bool Has(const std::string& path) const { return state_.registry.contains(path); }
  void SetText(const std::string& key, const std::string& value, const std::string& text);
  std::string PathOfLauncher(const std::string& exe) const { return around_.launcherFolder + "\\" + exe; }

  Snapshot state_;
  Surroundings around_;

 private:
  void SetData(const std::string& key, const std::string& value, const std::string& data);
  bool RegisterTypes(const Application& app, const std::string& appKey);
  bool RegisterSchemes(const Application& app, const std::string& appKey);
  void ClaimDefault(const std::string& type, const std::string& exe);
  bool HasDefault(const std::string& extension) const;
};

}  // namespace host
