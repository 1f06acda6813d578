// Creation and check of launchers. A launcher counts as valid by one resource alone, its bundle identifier,
// which only a committed resource update leaves in it.
#include "launcher/mainfo.h"

#include <cstring>

#include "channel/mainfo.h"
#include "common/handles.h"
#include "common/names.h"
#include "launcher/fs.h"
#include "launcher/resop.h"
#include "registry/registry.h"
#include "registry/registry_registration.h"
#include "sync/removal.h"
#include "xdt/exception/exc_tag.h"

namespace {

// The key that the tools' installer writes, in HKEY_LOCAL_MACHINE.
constexpr const WCHAR* toolsInstallationKey = TEXT("SOFTWARE\\Tessarine\\Tessarine Tools");

// One transaction on a launcher's resources: discarded unless it is committed.
class ResourceUpdate {
 public:
  explicit ResourceUpdate(const WideString& path) : handle_(BeginUpdateResourceW(path.c_str(), FALSE)) {
    if (handle_ == nullptr) XDT_RAISE("BeginUpdateResource() failed");
  }
  ~ResourceUpdate() { Discard(); }
  ResourceUpdate(const ResourceUpdate&) = delete;
  ResourceUpdate& operator=(const ResourceUpdate&) = delete;

  HANDLE get() const { return handle_; }

  void Commit() {
    if (!EndUpdateResourceW(std::exchange(handle_, nullptr), FALSE)) XDT_RAISE("EndUpdateResource() failed");
  }

  void Discard() {
    if (handle_ != nullptr) EndUpdateResourceW(std::exchange(handle_, nullptr), TRUE);
  }

 private:
  HANDLE handle_;
};

void WriteText(HANDLE update, const WideString& text, WORD identifier) {
  WriteRcData(update, text.c_str(), (text.size() + 1) * sizeof(WCHAR), identifier, languageNeutral);
}

void WriteLauncherResources(HANDLE update, const MacAppInfo& app) {
  constexpr char marker[] = "mice was here";
  WriteText(update, app.bundleId, BundleIdResource);
  WriteText(update, app.name, AppNameResource);
  WriteVersionInfo(update, app);
  WriteMacAppIcons(update, app);
  WriteRcData(update, marker, sizeof marker, MarkerResource, languageNeutral);
}

WideString ReadInstallLocation(REGSAM view) {
  HKEY opened = nullptr;
  if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, toolsInstallationKey, 0, KEY_QUERY_VALUE | view, &opened) !=
      ERROR_SUCCESS) {
    return {};
  }
  const Key key(opened);
  WCHAR text[260]{};
  DWORD type = REG_NONE;
  DWORD size = sizeof text;
  if (RegQueryValueExW(key.get(), TEXT("InstallLocation"), nullptr, &type, reinterpret_cast<BYTE*>(text),
                       &size) != ERROR_SUCCESS ||
      type != REG_SZ) {
    return {};
  }
  return TextOf(text, size / sizeof(WCHAR));
}

// The stub that every launcher is a copy of. Only a backslash ends the location; without a location the path
// is relative to the process' current directory.
WideString TemplatePath() {
  WideString path = ToolsInstallLocation();
  if (!path.empty() && path.back() != TEXT('\\')) path += TEXT('\\');
  return path + TEXT("Applications\\vel_micro_app.exe");
}

bool HasText(std::span<const std::byte> resource) {
  WCHAR first = 0;
  if (resource.size() >= sizeof first) std::memcpy(&first, resource.data(), sizeof first);
  return first != 0;
}

}  // namespace

bool CreateLauncher(const WideString& launcherFolder, const MacAppInfo& app, bool skipIfCurrent) {
  if (skipIfCurrent && HasValidLauncher(launcherFolder, app)) return false;
  const WideString launcherPath = LauncherPath(launcherFolder, app.name);
  const WideString fullName = FullName(app.name);
  if (!CopyFileW(TemplatePath().c_str(), launcherPath.c_str(), FALSE)) XDT_RAISE("write to file failed");
  UpdateLauncherResources(launcherPath, app, true);
  RegisterApplication(fullName, launcherPath);
  CreateLauncherShortcut(launcherPath, fullName);
  return true;
}

bool HasValidLauncher(const WideString& launcherFolder, const MacAppInfo& app) {
  const WideString path = LauncherPath(launcherFolder, app.name);
  if (!FileExists(path)) return false;
  UniqueModule launcher(LoadLibraryW(path.c_str()));
  if (!launcher) return false;
  try {
    if (!HasText(ReadRcData(launcher.get(), BundleIdResource, languageNeutral)))
      XDT_RAISE("can't find bundle id");
    return true;
  } catch (const std::exception&) {
    // Not usable: out it goes, with all that belongs to it, for a new one to be built.
    launcher.reset();
    RemoveHostApplication(app.name, launcherFolder, true);
    return false;
  }
}

void UpdateLauncherResources(const WideString& path, const MacAppInfo& app, bool deleteOnFailure) {
  ResourceUpdate update(path);
  const auto giveUp = [&] {
    update.Discard();
    if (deleteOnFailure) DeleteFileW(path.c_str());
  };
  try {
    WriteLauncherResources(update.get(), app);
  } catch (const std::exception& failure) {
    giveUp();
    XDT_RAISE(failure.what());
  } catch (...) {
    giveUp();
    XDT_RAISE("can't update resources");
  }
  update.Commit();
}

WideString ToolsInstallLocation() {
  WideString location = ReadInstallLocation(0);
  if (location.empty()) location = ReadInstallLocation(KEY_WOW64_32KEY);
  return location;
}

bool FileExists(const WideString& path) {
  const UINT mode = SetErrorMode(SEM_FAILCRITICALERRORS);
  const DWORD attributes = GetFileAttributesW(path.c_str());
  SetErrorMode(mode);
  return attributes != INVALID_FILE_ATTRIBUTES;
}

void DeleteExistingFile(const WideString& path) {
  if (!DeleteFileW(path.c_str())) XDT_RAISE("DeleteFileW() failed");
}
