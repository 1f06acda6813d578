// Folders, shortcuts and deletion. Folder creation is not checked: a folder that is not there shows as the
// failed save or copy that needed it.
#include "launcher/fs.h"

#include <windows.h>

#include <propsys.h>
#include <shellapi.h>
#include <shlobj.h>

#include "common/handles.h"
#include "common/names.h"
#include "xdt/exception/exc_tag.h"

namespace {

constexpr const WCHAR* shortcutDescription = TEXT("Tessarine Shared Application shortcut");

constexpr GUID appUserModel = {0x9F4C2855, 0x9F79, 0x4B39, {0xA8, 0xD0, 0xE1, 0xD4, 0x2D, 0xE1, 0xD5, 0xF3}};
constexpr PROPERTYKEY startPinOption = {appUserModel, 12};              // PKEY_AppUserModel_StartPinOption
constexpr PROPERTYKEY excludeFromShowInNewInstall = {appUserModel, 8};  // ..._ExcludeFromShowInNewInstall
constexpr ULONG noPinOnInstall = 1;                                     // ..._STARTPINOPTION_NOPINONINSTALL

// Keeps the shortcut from being pinned and from being shown as newly installed; without the interface, on
// older systems, there is nothing to keep it from.
void SetLinkProperties(IShellLinkW* link) {
  IPropertyStore* queried = nullptr;
  if (FAILED(link->QueryInterface(IID_IPropertyStore, reinterpret_cast<void**>(&queried)))) return;
  const ComPtr<IPropertyStore> store(queried);
  PROPVARIANT pin{};
  pin.vt = VT_UI4;
  pin.ulVal = noPinOnInstall;
  store->SetValue(startPinOption, pin);
  PROPVARIANT exclude{};
  exclude.vt = VT_BOOL;
  exclude.boolVal = VARIANT_TRUE;
  store->SetValue(excludeFromShowInNewInstall, exclude);
  store->Commit();
}

}  // namespace

WideString SpecialFolderPath(int csidl) {
  WCHAR path[MAX_PATH]{};
  if (!SHGetSpecialFolderPathW(nullptr, path, csidl, TRUE)) XDT_RAISE("SHGetSpecialFolderPathW() failed");
  return TextOf(path, std::size(path));
}

WideString LauncherFolder() {
  WideString folder = SpecialFolderPath(CSIDL_APPDATA) + TEXT("\\") + TEXT("Tessarine\\Shared Applications");
  SHCreateDirectoryExW(nullptr, folder.c_str(), nullptr);
  return folder;
}

WideString ShortcutFolder() {
  WideString folder = SpecialFolderPath(CSIDL_PROGRAMS) + TEXT("\\Tessarine Shared Applications\\");
  SHCreateDirectoryExW(nullptr, folder.c_str(), nullptr);
  return folder;
}

WideString ShortcutPath(WideView fullName) {
  return ShortcutFolder().append(fullName).append(TEXT(".lnk"));
}

WideString LauncherPath(WideView launcherFolder, WideView name) {
  return JoinPath(launcherFolder, LauncherFileName(name));
}

void CreateShortcut(const WideString& target, const WideString& link, const WideString& description) {
  IShellLinkW* created = nullptr;
  if (FAILED(CoCreateInstance(CLSID_ShellLink, nullptr, CLSCTX_INPROC_SERVER, IID_IShellLinkW,
                              reinterpret_cast<void**>(&created)))) {
    XDT_RAISE("CoCreateInstance() failed");
  }
  const ComPtr<IShellLinkW> shellLink(created);
  shellLink->SetPath(target.c_str());
  shellLink->SetDescription(description.c_str());
  IPersistFile* queried = nullptr;
  if (FAILED(shellLink->QueryInterface(IID_IPersistFile, reinterpret_cast<void**>(&queried)))) {
    XDT_RAISE("IShellLink::QueryInterface() failed");
  }
  const ComPtr<IPersistFile> file(queried);
  SetLinkProperties(shellLink.get());
  if (FAILED(file->Save(link.c_str(), TRUE))) XDT_RAISE("IPersistFile::Save() failed");
}

void CreateLauncherShortcut(const WideString& launcherPath, WideView fullName) {
  CreateShortcut(launcherPath, ShortcutPath(fullName), shortcutDescription);
}

void DeletePath(const WideString& path) {
  if (path.empty()) XDT_RAISE("path has zero size");
  const bool endsInSeparator = path.back() == TEXT('\\') || path.back() == TEXT('/');
  WideString list = path.substr(0, path.size() - (endsInSeparator ? 1 : 0));
  list.resize(path.size() + 2);  // ends in two NULs: a list of one name
  SHFILEOPSTRUCTW operation{};
  operation.wFunc = FO_DELETE;
  operation.pFrom = list.c_str();
  operation.fFlags = FOF_SILENT | FOF_NOCONFIRMATION | FOF_NOERRORUI;
  if (SHFileOperationW(&operation) != 0) XDT_RAISE("SHFileOperation() failed");
}

void RemoveLauncherFolders() {
  DeletePath(LauncherFolder());
  DeletePath(ShortcutFolder());
}
