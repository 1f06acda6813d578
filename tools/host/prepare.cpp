// Installing what a run needs. A template program that lies beside the tool is preferred to the generated
// one.
#include "host/prepare.h"

#include <windows.h>

#include <shlobj.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "host/system.h"
#include "host/text.h"
#include "stub/stub.h"

namespace host {
namespace {

constexpr const char* templateName = "vel_micro_app.exe";

void InstallTemplate() {
  const std::filesystem::path folder = DriveC() / "Program Files" / "Tessarine" / "Tools" / "Applications";
  const std::filesystem::path target = folder / templateName, program = ToolFolder() / templateName;
  std::filesystem::create_directories(folder);
  if (exists(program)) {
    copy_file(program, target, std::filesystem::copy_options::overwrite_existing);
    return;
  }
  const std::vector<std::byte> image = stub::MakeTemplateStub();
  std::ofstream out(target, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(image.data()), static_cast<std::streamsize>(image.size()));
  if (!out.flush()) throw std::runtime_error(PathText(target) + ": cannot be written");
}

// Creates the key; sets `value` when it is given.
void MakeKey(HKEY root, const char* path, const char* value = nullptr, const char* text = nullptr) {
  HKEY key;
  LSTATUS result = RegCreateKeyExW(root, Widen(path).c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_WRITE,
                                   nullptr, &key, nullptr);
  if (result == 0 && value) {
    const auto wide = Widen(text);
    result = RegSetValueExW(key, Widen(value).c_str(), 0, REG_SZ, reinterpret_cast<const BYTE*>(wide.c_str()),
                            static_cast<DWORD>((wide.size() + 1) * sizeof(WCHAR)));
    RegCloseKey(key);
  } else if (result == 0) {
    RegCloseKey(key);
  }
  if (result != 0) throw std::runtime_error(std::string("registry key cannot be written: ") + path);
}

}  // namespace

void PrepareGuest() {
  WCHAR folder[MAX_PATH];
  for (const int each : {CSIDL_APPDATA, CSIDL_LOCAL_APPDATA, CSIDL_PROGRAMS}) {
    if (!SHGetSpecialFolderPathW(nullptr, folder, each, TRUE)) {
      throw std::runtime_error("a folder of the user's cannot be created");
    }
  }
  InstallTemplate();
  MakeKey(HKEY_LOCAL_MACHINE, "SOFTWARE\\Tessarine\\Tessarine Tools", "InstallLocation",
          "C:\\Program Files\\Tessarine\\Tools");
  MakeKey(HKEY_CURRENT_USER, "SOFTWARE\\Tessarine\\Tessarine Tools");
  MakeKey(HKEY_CURRENT_USER, "Software\\RegisteredApplications");
  MakeKey(HKEY_CURRENT_USER, "Software\\Classes\\Applications");
}

}  // namespace host
