// What a launcher and a shortcut carry, read back from their files in the guest with the platform's calls
// only. No code of a launcher runs: it is loaded as data. All text is UTF-8.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "guest/bytes.h"

namespace host {

// The numbered resources of an executable, each exactly as it is stored.
using ResourceId = std::array<std::uint16_t, 3>;      // type, name, language
using Resources = std::map<ResourceId, std::string>;  // their bytes
// All of them; none when the platform cannot load the file.
Resources ReadResources(const std::string& path);

struct LauncherIcon {
  Bytes entry;       // its 14 bytes in the icon group
  Bytes image;       // the resource that the entry names; empty when there is none
  int size() const;  // width in pixels, as the entry has it
  bool operator==(const LauncherIcon&) const = default;
};

// The blocks of version information by their keys: texts as they are, numbers as words in hexadecimal.
using VersionBlocks = std::map<std::string, std::string>;

struct LauncherFile {
  std::string bundleId;
  std::string name;
  VersionBlocks version;
  std::vector<LauncherIcon> icons;  // in the group's order
  bool marked = false;              // the marker that ends every launcher's resources is there
};
// Fields that cannot be read are empty, all of them when the file is not a whole executable.
LauncherFile ReadLauncherFile(const std::string& path);

struct Shortcut {
  std::string target;
  std::string description;
  bool staysUnpinned = false;     // properties of the application-user-model set: 12 is the number 1,
  bool staysUnannounced = false;  // 8 is true
};
// Nothing when the file is no shell link.
std::optional<Shortcut> ReadShortcut(const std::string& path);
// Does the platform give a link's properties back?
bool KeepsShortcutProperties();

}  // namespace host
