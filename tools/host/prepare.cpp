// Installing what a run needs. A template program that lies beside the tool is preferred to the generated
// one.
#include "host/prepare.h"

#include <windows.h>

#include <shlobj.h>

#include <filesystem>
#include <stdexcept>

#include "guest/guest_view.h"
#include "host/pictures.h"
#include "host/system.h"
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
  WriteFileWhole(target, {reinterpret_cast<const char*>(image.data()), image.size()});
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
  PutText("HKLM\\SOFTWARE\\Tessarine\\Tessarine Tools", "InstallLocation",
          "C:\\Program Files\\Tessarine\\Tools");
  for (const std::string& key :
       {tessarineKey + "\\Tessarine Tools", registeredKey, classesKey + "\\Applications"})
    PutKey(key);
}

}  // namespace host
