// The registry through the platform's calls; reading goes by the snapshot that the host tool takes.
#include "support/hive.h"

#include <gtest/gtest.h>
#include <shlwapi.h>

#include "host/guest_view.h"

namespace hive {
namespace {

constexpr std::string_view root = "HKCU\\";

const std::string machineClasses = "Software\\Classes\\";

void PutMachineText(const std::string& path, const std::string& text) {
  const auto wide = host::Widen(text);
  EXPECT_EQ(SHSetValueW(HKEY_LOCAL_MACHINE, host::Widen(machineClasses + path).c_str(), nullptr, REG_SZ,
                        wide.c_str(), static_cast<DWORD>((wide.size() + 1) * sizeof(WCHAR))),
            ERROR_SUCCESS);
}

}  // namespace

void PutKey(const std::string& path) {
  HKEY key = nullptr;
  ASSERT_EQ(RegCreateKeyExW(HKEY_CURRENT_USER, host::Widen(path).c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                            KEY_WRITE, nullptr, &key, nullptr),
            ERROR_SUCCESS)
      << path;
  RegCloseKey(key);
}

void PutText(const std::string& path, const std::string& name, const std::string& text, DWORD type) {
  PutUnits(path, name, type, host::Widen(text) + WCHAR{0});
}

void PutUnits(const std::string& path, const std::string& name, DWORD type,
              const std::basic_string<WCHAR>& units) {
  EXPECT_EQ(SHSetValueW(HKEY_CURRENT_USER, host::Widen(path).c_str(), host::Widen(name).c_str(), type,
                        units.data(), static_cast<DWORD>(units.size() * sizeof(WCHAR))),
            ERROR_SUCCESS)
      << path;
}

void Drop(const std::string& path) {
  SHDeleteKeyW(HKEY_CURRENT_USER, host::Widen(path).c_str());
}

bool Has(const std::string& path) {
  HKEY key = nullptr;
  if (RegOpenKeyExW(HKEY_CURRENT_USER, host::Widen(path).c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS)
    return false;
  RegCloseKey(key);
  return true;
}

std::string Value(const std::string& path, const std::string& name) {
  const host::Entries entries = host::TakeSnapshot().registry;
  const auto found = entries.find(host::ValuePath(root.data() + path, name));
  return found == entries.end() ? "none" : found->second;
}

std::string Text() {
  std::string text;
  for (const auto& [path, data] : host::TakeSnapshot().registry) {
    const std::string below = path.substr(root.size());
    const std::size_t mark = below.find(host::valueMark);
    if (mark == std::string::npos) {
      text += "[" + below + "]\n";
    } else {
      const std::string name = below.substr(mark + 1);
      text += (name.empty() ? "@" : "\"" + name + "\"") + "=" + data + "\n";
    }
  }
  const std::string folder = host::LauncherFolder();
  for (std::size_t at; (at = text.find(folder)) != std::string::npos;)
    text.replace(at, folder.size(), "{folder}");
  return text;
}

MachineAssociation::MachineAssociation(const std::string& extension, bool withCommand)
    : extension_(extension) {
  PutMachineText("." + extension_, "VelomiraTest." + extension_);
  PutMachineText("VelomiraTest." + extension_, "");
  if (!withCommand) return;
  PutMachineText("VelomiraTest." + extension_ + "\\shell\\open\\command", "C:\\windows\\notepad.exe \"%1\"");
}

MachineAssociation::~MachineAssociation() {
  SHDeleteKeyW(HKEY_LOCAL_MACHINE, host::Widen(machineClasses + "." + extension_).c_str());
  SHDeleteKeyW(HKEY_LOCAL_MACHINE, host::Widen(machineClasses + "VelomiraTest." + extension_).c_str());
}

}  // namespace hive
