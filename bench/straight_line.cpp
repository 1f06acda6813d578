#include "straight_line.h"

#include <propsys.h>
#include <shellapi.h>
#include <shlobj.h>
#include <shlwapi.h>

#include <algorithm>
#include <cstring>

#include "channel/tool_gate.h"
#include "common/host_application.h"
#include "common/windows_version.h"
#include "launcher/fs.h"
#include "launcher/resop.h"
#include "registry/registry_names.h"

namespace bench {
namespace {

// ---- Registry ------------------------------------------------------------------------------------------

void Set(HKEY root, const WideString& path, const WideString& name, const WideString& text) {
  HKEY key = nullptr;
  RegCreateKeyExW(root, path.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_WRITE, nullptr, &key, nullptr);
  RegSetValueExW(key, name.c_str(), 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                 static_cast<DWORD>((text.size() + 1) * sizeof(WCHAR)));
  RegCloseKey(key);
}

HKEY Open(HKEY root, const WCHAR* path) {
  HKEY key = nullptr;
  RegOpenKeyExW(root, path, 0, KEY_READ | KEY_WRITE, &key);
  return key;
}

HKEY OpenHive() {
  HKEY hive = nullptr;
  RegOpenCurrentUser(KEY_READ | KEY_WRITE, &hive);
  return hive;
}

// Opens the key, takes one thing out of it with `remove`, and closes it.
template <class Remove>
void TakeOut(HKEY root, const WideString& path, const WideString& what, Remove remove) {
  const HKEY key = Open(root, path.c_str());
  remove(key, what.c_str());
  RegCloseKey(key);
}

bool HasValue(HKEY root, const WCHAR* path, const WCHAR* name) {
  WCHAR text[512];
  DWORD type = 0, size = sizeof text;
  return SHGetValueW(root, path, name, &type, text, &size) == ERROR_SUCCESS;
}

// ---- Host ----------------------------------------------------------------------------------------------

void Ask(const host::Bytes& request, std::size_t bufferSize, const std::vector<std::string>& texts,
         const WideString& argument) {
  static std::byte buffer[iconsBuffer];
  char utf8[64];
  const int length = static_cast<int>(argument.size());
  WideCharToMultiByte(CP_UTF8, 0, argument.c_str(), length, nullptr, 0, nullptr, nullptr);
  WideCharToMultiByte(CP_UTF8, 0, argument.c_str(), length, utf8, sizeof utf8, nullptr, nullptr);
  std::memcpy(buffer, request.data(), request.size());
  const HANDLE device =
      CreateFileA("\\\\.\\tsr_tg", GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                  OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  const auto size = static_cast<std::uint32_t>(bufferSize);
  TgPacket<2> packet{{TgSendCommand, 0, 0, 2, 0},
                     {MakeTgBuffer(buffer, size, 0), MakeTgBuffer(buffer, size, deviceWrites)}};
  DWORD returned = 0;
  DeviceIoControl(device, IOCTL_TG_REQUEST, &packet, sizeof packet, &packet, sizeof packet, &returned,
                  nullptr);
  for (const std::string& text : texts) {
    WCHAR wide[64];
    MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
    MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), wide, 64);
  }
  CloseHandle(device);
}

// ---- Launcher ------------------------------------------------------------------------------------------

bool IsValid(const WideString& launcher) {
  const UINT mode = SetErrorMode(SEM_FAILCRITICALERRORS);
  const DWORD attributes = GetFileAttributesW(launcher.c_str());
  SetErrorMode(mode);
  if (attributes == INVALID_FILE_ATTRIBUTES) return false;
  const HMODULE module = LoadLibraryW(launcher.c_str());
  const HRSRC resource = FindResourceExW(module, RT_RCDATA, MAKEINTRESOURCEW(BundleIdResource), 0);
  SizeofResource(module, resource);
  LockResource(LoadResource(module, resource));
  FreeLibrary(module);
  return true;
}

void Update(HANDLE update, LPCWSTR type, WORD identifier, WORD language, const host::Bytes& data) {
  UpdateResourceW(update, type, MAKEINTRESOURCEW(identifier), language, const_cast<std::byte*>(data.data()),
                  static_cast<DWORD>(data.size()));
}

void WriteResources(const Plan& plan) {
  static const host::Bytes marker(14, std::byte{'m'});
  const HANDLE update = BeginUpdateResourceW(plan.launcher.c_str(), FALSE);
  Update(update, RT_RCDATA, BundleIdResource, languageNeutral, plan.bundleId);
  Update(update, RT_RCDATA, AppNameResource, languageNeutral, plan.name);
  Update(update, RT_VERSION, 1, languageDefault, plan.version);
  Ask(plan.iconsRequest, iconsBuffer, {}, plan.app);
  WORD identifier = IconGroupId;
  for (const host::Bytes& image : plan.images) {
    IsWindows2000OrEarlier();
    Update(update, RT_ICON, ++identifier, languageDefault, image);
  }
  Update(update, RT_GROUP_ICON, IconGroupId, languageDefault, plan.group);
  Update(update, RT_RCDATA, MarkerResource, languageNeutral, marker);
  EndUpdateResourceW(update, FALSE);
}

template <class Interface>
Interface* Query(IUnknown* from, REFIID iid) {
  Interface* queried = nullptr;
  from->QueryInterface(iid, reinterpret_cast<void**>(&queried));
  return queried;
}

void Folder(int csidl, const WCHAR* below) {
  WCHAR path[MAX_PATH];
  SHGetSpecialFolderPathW(nullptr, path, csidl, TRUE);
  std::char_traits<WCHAR>::copy(path + std::char_traits<WCHAR>::length(path), below,
                                WideView(below).size() + 1);
  SHCreateDirectoryExW(nullptr, path, nullptr);
}
void FolderOfShortcuts() {
  Folder(CSIDL_PROGRAMS, TEXT("\\Tessarine Shared Applications\\"));
}
void FolderOfLaunchers() {
  Folder(CSIDL_APPDATA, TEXT("\\Tessarine\\Shared Applications"));
}

void WriteShortcut(const Plan& plan) {
  static constexpr GUID properties = {
      0x9F4C2855, 0x9F79, 0x4B39, {0xA8, 0xD0, 0xE1, 0xD4, 0x2D, 0xE1, 0xD5, 0xF3}};
  FolderOfShortcuts();
  IShellLinkW* link = nullptr;
  CoCreateInstance(CLSID_ShellLink, nullptr, CLSCTX_INPROC_SERVER, IID_IShellLinkW,
                   reinterpret_cast<void**>(&link));
  link->SetPath(plan.launcher.c_str());
  link->SetDescription(TEXT("Tessarine Shared Application shortcut"));
  auto* const file = Query<IPersistFile>(link, IID_IPersistFile);
  auto* const store = Query<IPropertyStore>(link, IID_IPropertyStore);
  PROPVARIANT pin{}, exclude{};
  pin.vt = VT_UI4;
  pin.ulVal = 1;
  exclude.vt = VT_BOOL;
  exclude.boolVal = VARIANT_TRUE;
  store->SetValue({properties, 12}, pin);
  store->SetValue({properties, 8}, exclude);
  store->Commit();
  store->Release();
  file->Save(plan.link.c_str(), TRUE);
  file->Release();
  link->Release();
}

void BuildLauncher(const Plan& plan) {
  const WCHAR* const tools = TEXT("SOFTWARE\\Tessarine\\Tessarine Tools");
  HKEY key = nullptr;
  RegOpenKeyExW(HKEY_LOCAL_MACHINE, tools, 0, KEY_QUERY_VALUE, &key);
  BYTE location[520];
  DWORD type = 0, size = sizeof location;
  RegQueryValueExW(key, TEXT("InstallLocation"), nullptr, &type, location, &size);
  RegCloseKey(key);
  CopyFileW(TEXT("C:\\Program Files\\Tessarine\\Tools\\Applications\\vel_micro_app.exe"),
            plan.launcher.c_str(), FALSE);
  WriteResources(plan);
  const HKEY hive = OpenHive();
  Set(hive, plan.appKey, {}, {});
  Set(hive, plan.appCommand, {}, plan.openCommand);
  RegCloseKey(hive);
  WriteShortcut(plan);
}

// ---- Registration --------------------------------------------------------------------------------------

void Offer(const Plan& plan, const WideString& offer) {
  const HKEY hive = OpenHive();
  Set(hive, offer, {}, plan.exe);
  RegCloseKey(hive);
}

// An extension with an offer, which every claimed one has here.
void MakeClaim(const Plan& plan, const Plan::Claim& claim) {
  IsWindowsVersionOrLater(6, 4);
  DWORD length = 0xFFFFFFFF;
  const auto progIdOfType = static_cast<ASSOCSTR>(20);
  if (AssocQueryStringW(ASSOCF_INIT_IGNOREUNKNOWN | ASSOCF_NOTRUNCATE, progIdOfType, claim.dotted.c_str(),
                        nullptr, nullptr, &length) != HRESULT_FROM_WIN32(ERROR_NO_ASSOCIATION)) {
    return;
  }
  const HKEY hive = OpenHive();
  IsWindowsVersionOrLater(6, 1);
  SHSetValueW(hive, claim.key.c_str(), nullptr, REG_SZ, nullptr, 0);
  Set(hive, claim.key, {}, {});
  Set(hive, claim.command, {}, plan.openCommand);
  LONG size = 0;
  RegQueryValueW(hive, plan.offers.front().c_str(), nullptr, &size);
  RegCloseKey(hive);
  HKEY key = nullptr;
  RegCreateKeyExW(HKEY_CURRENT_USER, claim.progIds.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_WRITE,
                  nullptr, &key, nullptr);
  RegSetValueExW(key, claim.progId.c_str(), 0, REG_NONE, nullptr, 0);
  RegCloseKey(key);
}

// True when the launcher had to be built.
bool Register(const Plan& plan) {
  const HKEY user = HKEY_CURRENT_USER;
  const bool build = !IsValid(plan.launcher);
  if (build) BuildLauncher(plan);
  Ask(plan.detailsRequest, recordsBuffer, plan.detailed, plan.app);
  for (const WideString& offer : plan.offers) Offer(plan, offer);
  TakeOut(user, plan.appKey, noOpenWithValue, RegDeleteValueW);
  TakeOut(user, plan.appKey, TEXT("SupportedTypes"), RegDeleteKeyW);
  for (const WideString& dotted : plan.dotted) Set(user, plan.supportedTypes, dotted, {});
  for (const Plan::Claim& claim : plan.claims) MakeClaim(plan, claim);
  TakeOut(user, plan.appKey, TEXT("SupportedProtocols"), RegDeleteKeyW);
  TakeOut(user, toolsKey, plan.macApps, SHDeleteKeyW);
  for (const Plan::Scheme& scheme : plan.schemes) {
    Set(user, plan.supportedProtocols, scheme.name, {});
    Set(user, plan.progIdCommand, {}, plan.urlCommand);
    Set(user, plan.urlAssociations, scheme.name, plan.progId);
    if (HasValue(HKEY_CLASSES_ROOT, scheme.name.c_str(), urlProtocolValue.c_str())) continue;
    Set(user, scheme.key, {}, scheme.description);
    Set(user, scheme.key, urlProtocolValue, {});
  }
  Set(user, registeredApplicationsKey, plan.app, plan.capabilities);
  return build;
}

// ---- Removal -------------------------------------------------------------------------------------------

void RemoveKeys(HKEY hive, const Plan& plan) {
  SHDeleteKeyW(hive, plan.progIdKey.c_str());
  SHDeleteKeyW(hive, plan.macAppsKey.c_str());
  TakeOut(hive, registeredApplicationsKey, plan.app, RegDeleteValueW);
  SHDeleteKeyW(hive, plan.appKey.c_str());
}

void Remove(const Plan& plan) {
  FolderOfShortcuts();
  DeleteFileW(plan.link.c_str());
  const HKEY hive = OpenHive();
  RemoveKeys(hive, plan);
  RegCloseKey(hive);
  DeleteFileW(plan.launcher.c_str());
}

HKEY OpenInHive(const WCHAR* path) {
  const HKEY hive = OpenHive(), key = Open(hive, path);
  RegCloseKey(hive);
  return key;
}

template <class Visit>
void Enumerate(HKEY key, Visit visit) {
  WCHAR name[1024];
  for (DWORD index = 0, length = 1024;
       RegEnumKeyExW(key, index, name, &length, nullptr, nullptr, nullptr, nullptr) == ERROR_SUCCESS;
       ++index, length = 1024) {
    visit(WideView(name, length));
  }
}

}  // namespace

void AskForList(const std::vector<std::string>& texts) {
  static const host::Bytes request = Request(CmdGetAppList, "*", recordsBuffer);
  Ask(request, recordsBuffer, texts, TEXT("*"));
}

StraightLine::StraightLine(const std::vector<host::Application>& listed,
                           const std::vector<host::Application>& gone)
    : pattern_(LauncherFolder() + TEXT("\\*.exe")), listed_(PlansFor(listed)), gone_(PlansFor(gone)) {
  for (const Plan& plan : listed_) launchers_.emplace(plan.exe, &plan);
  for (const host::Application& app : listed) list_.insert(list_.end(), {app.bundleId, app.name});
}

void StraightLine::Pass() const {
  FolderOfLaunchers();
  AskForList(list_);
  WIN32_FIND_DATAW entry;
  const HANDLE find = FindFirstFileW(pattern_.c_str(), &entry);
  if (find != INVALID_HANDLE_VALUE) {
    while (FindNextFileW(find, &entry)) {
    }
    FindClose(find);
  }
  for (const Plan& plan : gone_) Remove(plan);
  bool changed = false;
  for (const Plan& plan : listed_) changed |= Register(plan);
  if (changed) SHChangeNotify(SHCNE_ASSOCCHANGED, SHCNF_IDLIST, nullptr, nullptr);
}

void StraightLine::Ask(bool icons) const {
  AskForList(list_);
  for (const Plan& plan : listed_) {
    if (icons) bench::Ask(plan.iconsRequest, iconsBuffer, {}, plan.app);
    bench::Ask(plan.detailsRequest, recordsBuffer, plan.detailed, plan.app);
  }
}

void StraightLine::Withdraw() const {
  const WCHAR* const classesPath = TEXT("Software\\Classes\\");
  const HKEY applications = OpenInHive(TEXT("Software\\Classes\\Applications\\"));
  Enumerate(applications, [](WideView) {});
  for (const auto& [exe, plan] : launchers_) {
    SHDeleteKeyW(applications, plan->exe.c_str());
    const HKEY hive = OpenHive();
    RemoveKeys(hive, *plan);
    RegCloseKey(hive);
  }
  HKEY classes = OpenInHive(classesPath);
  Enumerate(classes, [classes](WideView name) {
    if (HasValue(classes, name.data(), urlProtocolValue.c_str())) HasValue(classes, name.data(), nullptr);
  });
  for (const Plan& plan : listed_) {
    for (const Plan::Scheme& scheme : plan.schemes) RegDeleteKeyW(classes, scheme.name.c_str());
  }
  RegCloseKey(classes);
  RegCloseKey(applications);

  FolderOfLaunchers();
  classes = OpenInHive(classesPath);
  Enumerate(classes, [classes](WideView name) {
    if (name.ends_with(autoFileSuffix)) {
      WCHAR command[MAX_PATH];
      *std::ranges::copy(commandSubkey, std::ranges::copy(name, command).out).out = 0;
      HasValue(classes, command, nullptr);
    }
  });
  for (const Plan& plan : listed_) {
    for (const Plan::Claim& claim : plan.claims) SHDeleteKeyW(classes, claim.progId.c_str());
  }
  RegCloseKey(classes);

  classes = OpenInHive(classesPath);
  Enumerate(classes, [this, classes](WideView name) {
    if (name.starts_with(TEXT('.'))) SweepOffers(classes, name);
  });
  RegCloseKey(classes);
}

void StraightLine::SweepOffers(HKEY classes, WideView extension) const {
  WCHAR path[MAX_PATH];
  constexpr WideView list = TEXT("\\OpenWithList\\");
  *std::ranges::copy(list, std::ranges::copy(extension, path).out).out = 0;
  const HKEY offers = Open(classes, path);
  if (offers == nullptr) return;
  std::vector<WideString> found;
  Enumerate(offers, [&](WideView name) {
    if (launchers_.contains(name)) found.emplace_back(name);
  });
  for (const WideString& name : found) SHDeleteKeyW(offers, name.c_str());
  HasValue(classes, extension.data(), nullptr);
  RegCloseKey(offers);
}

}  // namespace bench
