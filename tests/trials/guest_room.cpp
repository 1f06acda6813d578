// The guest by hand. Keys are written with the platform's calls, files with the machine's own.
#include "trials/guest_room.h"

#include <platform/control.h>
#include <shlwapi.h>

#include <chrono>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "host/guest_view.h"
#include "host/text.h"

namespace trials {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t mostShown = 6;  // differences of one failure
constexpr auto limit = std::chrono::seconds(50);

HKEY Root(const std::string& key) {
  return key.starts_with("HKLM\\") ? HKEY_LOCAL_MACHINE : HKEY_CURRENT_USER;
}
std::basic_string<WCHAR> Below(const std::string& key) {
  return host::Widen(key.substr(key.find('\\') + 1));
}

void Check(LSTATUS status, const std::string& key) {
  if (status != ERROR_SUCCESS) throw std::runtime_error("registry key cannot be written: " + key);
}

bool IsBelow(const std::string& path, const std::string& folder) {
  return path.size() >= folder.size() && host::EqualNoCase(path.substr(0, folder.size()), folder) &&
         (path.size() == folder.size() || path[folder.size()] == '\\' || path[folder.size()] == '/');
}

bool IsAnyBelow(const std::string& path, std::initializer_list<std::string> folders) {
  return std::any_of(folders.begin(), folders.end(),
                     [&](const auto& folder) { return IsBelow(path, folder); });
}

}  // namespace

void PutData(const std::string& key, const std::string& value, DWORD type, std::string_view bytes) {
  HKEY made = nullptr;
  Check(RegCreateKeyExW(Root(key), Below(key).c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_WRITE,
                        nullptr, &made, nullptr),
        key);
  const LSTATUS status =
      RegSetValueExW(made, host::Widen(value).c_str(), 0, type, reinterpret_cast<const BYTE*>(bytes.data()),
                     static_cast<DWORD>(bytes.size()));
  RegCloseKey(made);
  Check(status, key);
}

void PutText(const std::string& key, const std::string& value, const std::string& text) {
  const auto wide = host::Widen(text);
  PutData(key, value, REG_SZ,
          {reinterpret_cast<const char*>(wide.c_str()), (wide.size() + 1) * sizeof(WCHAR)});
}

void PutKey(const std::string& key) {
  HKEY made = nullptr;
  Check(RegCreateKeyExW(Root(key), Below(key).c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_WRITE,
                        nullptr, &made, nullptr),
        key);
  RegCloseKey(made);
}

void DropKey(const std::string& key) {
  const LSTATUS status = SHDeleteKeyW(Root(key), Below(key).c_str());
  if (status != ERROR_FILE_NOT_FOUND) Check(status, key);
}

fs::path HostFile(const std::string& guestPath) {
  std::string below = guestPath.substr(3);
  for (char& c : below) c = c == '\\' ? '/' : c;
  return (platform::GuestRoot() / below).lexically_normal();
}

void PutFile(const std::string& guestPath, const std::string& bytes) {
  fs::create_directories(HostFile(guestPath).parent_path());
  std::ofstream(HostFile(guestPath), std::ios::binary) << bytes;
}

std::map<std::string, std::string> Elsewhere() {
  const GuestState state = SaveGuestState();
  std::map<std::string, std::string> elsewhere;
  std::string key;
  std::istringstream lines(state.registry);
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with('[')) key = line.substr(1, line.size() - 2);
    if (IsAnyBelow(key, {"HKEY_CURRENT_USER\\Software\\Classes", "HKEY_CURRENT_USER\\SOFTWARE\\Tessarine",
                         "HKEY_CURRENT_USER\\Software\\RegisteredApplications"})) {
      continue;
    }
    elsewhere["[" + key + "]"] += line + "\n";
  }
  const std::string launchers = HostFile(host::LauncherFolder()).string();
  const std::string shortcuts = HostFile(host::ShortcutFolder()).string();
  for (const auto& [name, bytes] : state.files) {
    if (!IsAnyBelow((platform::GuestRoot() / name).string(), {launchers, shortcuts})) elsewhere[name] = bytes;
  }
  return elsewhere;
}

std::vector<std::string> Differences(const std::map<std::string, std::string>& before,
                                     const std::map<std::string, std::string>& now) {
  std::vector<std::string> differences;
  for (const auto& [name, content] : before) {
    const auto found = now.find(name);
    if (found == now.end()) {
      differences.push_back("gone: " + name);
    } else if (found->second != content) {
      differences.push_back("changed: " + name);
    }
  }
  for (const auto& [name, content] : now) {
    if (!before.contains(name)) differences.push_back("new: " + name);
  }
  return differences;
}

void Try(Report& report, const std::string& name, const std::function<void()>& trial) {
  report.Trial(name);
  try {
    trial();
  } catch (const std::exception& failure) {
    report.Fail(failure.what());
  }
}

void Add(Tally& sum, const Tally& tally) {
  for (const auto& [figure, number] : tally.figures) sum.figures[figure] += number;
  sum.failures += tally.failures;
}

void RequireNone(const std::string& when, const std::vector<std::string>& differences) {
  if (differences.empty()) return;
  std::string text = when + ": " + std::to_string(differences.size()) + " differences";
  for (std::size_t i = 0; i < std::min(mostShown, differences.size()); ++i) text += "\n    " + differences[i];
  throw std::runtime_error(text);
}

void CarryOut(Rig& rig, const host::Bytes& command) {
  rig.Send(command);
  if (!rig.gate().WaitIdle(limit)) throw std::runtime_error("the guest does not come to rest");
}

void StopAndCount(Rig& rig) {
  rig.module().Stop();
  const host::GateFacts facts = rig.gate().Facts();
  std::vector<std::string> wrong = facts.breaches;
  for (const auto& [kind, count] : platform::Census())
    wrong.push_back(std::to_string(count) + " open: " + kind);
  if (facts.opens != facts.closes) {
    wrong.push_back("the device was opened " + std::to_string(facts.opens) + " times and closed " +
                    std::to_string(facts.closes) + " times");
  }
  RequireNone("after a stop", wrong);
}

}  // namespace trials
