// A guest's story as one page: self-contained, opened from disk, sent to anybody. The page itself lies in
// `page`; here is what it is told.
#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <string>

#include "guest/guest_view.h"
#include "host/catalogue.h"
#include "host/conversation.h"

namespace host {

// Told the steps of a story in their order, and everything that was said before the step's end.
class Report {
 public:
  void Hear(const Exchange& exchange);
  void AddStep(const std::string& title, const Snapshot& guest, const Catalogue& shared);
  // Throws std::runtime_error when the file cannot be written.
  void Write(const std::filesystem::path& file) const;

 private:
  nlohmann::json CatalogueOf(const Catalogue& catalogue);
  nlohmann::json LauncherOf(const std::string& path);
  std::string Keep(const std::string& pixels, const std::function<std::string()>& png);

  Snapshot last_;
  nlohmann::json shared_ = nlohmann::json::array();  // in the last step
  nlohmann::json steps_ = nlohmann::json::array(), talk_ = nlohmann::json::array(),
                 icons_ = nlohmann::json::object();
  std::map<std::string, std::string> owners_;  // of registry entries, in the last step
  std::map<std::string, nlohmann::json, PathLess>
      opens_;  // what types and schemes open with, in the last step
};

}  // namespace host
