// The registry of tests, over the host tool's.
#include "support/hive.h"

#include <shlwapi.h>

#include <stdexcept>

#include "guest/guest_view.h"

namespace hive {

void Drop(const std::string& key) {
  const HKEY root = key.starts_with("HKLM\\") ? HKEY_LOCAL_MACHINE : HKEY_CURRENT_USER;
  const LSTATUS status = SHDeleteKeyW(root, host::Widen(key.substr(key.find('\\') + 1)).c_str());
  if (status != ERROR_SUCCESS && status != ERROR_FILE_NOT_FOUND)
    throw std::runtime_error("registry key cannot be deleted: " + key);
}

bool Has(const std::string& key) {
  return static_cast<bool>(host::OpenKey(key));
}

std::string Value(const std::string& key, const std::string& name) {
  host::Entries entries;
  host::ReadKeys(key, entries);
  const auto found = entries.find(host::ValuePath(key, name));
  return found == entries.end() ? "none" : found->second;
}

std::string Text() {
  std::string text;
  for (const auto& [full, data] : host::TakeSnapshot().registry) {
    const std::string path = full.substr(full.find('\\') + 1);
    const std::size_t mark = path.find(host::valueMark);
    if (mark == std::string::npos) {
      text += "[" + path + "]\n";
    } else {
      const std::string name = path.substr(mark + 1);
      text += (name.empty() ? "@" : "\"" + name + "\"") + "=" + data + "\n";
    }
  }
  const std::string folder = host::LauncherFolder();
  for (std::size_t at; (at = text.find(folder)) != std::string::npos;)
    text.replace(at, folder.size(), "{folder}");
  return text;
}

void PutMachineAssociation(const std::string& extension, bool withCommand) {
  const std::string progId = "VelomiraTest." + extension, key = "HKLM\\Software\\Classes\\" + progId;
  PutText("HKLM\\Software\\Classes\\." + extension, "", progId);
  PutText(key, "", "");
  if (withCommand) PutText(key + "\\shell\\open\\command", "", "C:\\windows\\notepad.exe \"%1\"");
}

}  // namespace hive
