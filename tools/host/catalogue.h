// The applications that the simulated host shares: a folder with catalogue.json and PNG icons, read whole
// into memory. Every failure is a std::runtime_error that names the file (or the application) and the reason.
#pragma once

#include <algorithm>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "host/wire.h"

namespace host {

// One image as it goes to the guest: a BMP file, bottom-up.
struct Icon {
  std::string file;      // in the catalogue's folder
  int size = 0;          // width in pixels
  bool accepted = true;  // 32 bits per pixel, the one kind that the guest takes; otherwise 24 bits
  Bytes bmp;
};

struct Application {
  std::string bundleId;
  std::string name;
  std::vector<std::string> documentTypes;  // without the dot
  std::vector<std::string> defaultTypes;
  bool anyType = false;
  std::vector<std::string> urlSchemes;  // without the colon
  std::vector<Icon> icons;
};

// A launcher needs at least one icon that the guest takes.
inline bool CanBeBuilt(const Application& app) {
  return std::ranges::any_of(app.icons, &Icon::accepted);
}

// Reads a PNG of at most 256 by 256 pixels.
Icon ReadIcon(const std::filesystem::path& folder, const std::string& file);
// A picture of one colour.
Icon PlainIcon();
// The same picture in the kind that the guest refuses.
Icon RefusedIcon(const Icon& icon);

// What is to be said of a catalogue: a fault, or what works but is hardly meant.
struct Remark {
  bool isFault = false;
  std::string text;  // begins with file, line and column: "catalogue.json:3:14: ..."
};

class Catalogue {
 public:
  static Catalogue Load(const std::filesystem::path& folder);  // throws with all faults, one a line
  // Reads on after a fault and adds all remarks; with a fault the result is not whole.
  static Catalogue Check(const std::filesystem::path& folder, std::vector<Remark>& remarks);

  const std::vector<Application>& applications() const { return applications_; }
  const Application* Find(std::string_view name) const;
  const Application& Named(std::string_view name) const;  // throws when there is none

  // Edits refuse what Load refuses: bad or double names, double identifiers, more than one reply can hold.
  void Add(Application application);
  void Remove(std::string_view name);
  void Rename(std::string_view name, const std::string& newName);

 private:
  using Say = std::function<void(const std::string& field, const std::string& why)>;
  void FindConflicts(const Application& application, const Say& say) const;

  std::vector<Application> applications_;
};

}  // namespace host
