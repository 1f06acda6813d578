// The current user's registry, arranged and read by tests. Paths lie below HKEY_CURRENT_USER and all text is
// UTF-8. What is read is spelled as the values are stored: a REG_SZ in quotation marks, other types by name.
#pragma once

#include <windows.h>

#include <string>

namespace hive {

void PutKey(const std::string& path);
void PutText(const std::string& path, const std::string& name, const std::string& text, DWORD type = REG_SZ);
void PutUnits(const std::string& path, const std::string& name, DWORD type,
              const std::basic_string<WCHAR>& units);
void Drop(const std::string& path);  // the whole tree; nothing when it is missing

bool Has(const std::string& path);
// One value, "none" when it is missing; the empty name is the default value.
std::string Value(const std::string& path, const std::string& name);

// Everything below the keys that the module writes under, one line a key and a value, with "{folder}" for the
// launcher folder: equal registries give equal texts.
std::string Text();

// An association of .{extension} for all users of the machine, for as long as it lives: a ProgID, with an
// open command or without one.
class MachineAssociation {
 public:
  MachineAssociation(const std::string& extension, bool withCommand);
  ~MachineAssociation();
  MachineAssociation(const MachineAssociation&) = delete;
  MachineAssociation& operator=(const MachineAssociation&) = delete;

 private:
  std::string extension_;
};

}  // namespace hive
