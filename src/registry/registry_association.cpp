// File-type association. The black list keeps launchers away from types that the system itself runs.
#include "registry/registry_association.h"

#include <shlwapi.h>

#include <algorithm>

#include "common/windows_version.h"
#include "registry/registry_names.h"
#include "registry/registry_registration.h"
#include "xdt/exception/exc_tag.h"

namespace {

constexpr auto associatedProgId = static_cast<ASSOCSTR>(20);  // ASSOCSTR_PROGID, which older headers lack

constexpr WideView blackList[] = {TEXT(".lnk"), TEXT(".exe"), TEXT(".com"), TEXT(".pif"), TEXT(".bat"),
                                  TEXT(".cmd"), TEXT(".msc"), TEXT(".msi"), TEXT(".ico")};

void CheckBlackList(const WideString& dotted) {
  if (std::ranges::count(blackList, AsciiLower(dotted)) != 0)
    XDT_RAISE("extension in the black list, do not operate with it");
}

bool KeyExists(HKEY hive, const WideString& path) {
  LONG size = 0;
  return RegQueryValueW(hive, path.c_str(), nullptr, &size) == ERROR_SUCCESS;
}

// Sets a default value of `size` bytes; with none, the key alone comes into being.
bool SetDefault(HKEY hive, const WideString& path, const WCHAR* text, std::size_t size) {
  return SHSetValueW(hive, path.c_str(), nullptr, REG_SZ, text, static_cast<DWORD>(size)) == ERROR_SUCCESS;
}

}  // namespace

bool RegisterOpenWith(const WideString& app, const WideString& extension, const WideString& launcherFolder,
                      bool asDefault) {
  const WideString exe = LauncherExe(app);
  const WideString launcherPath = JoinPath(launcherFolder, exe);
  const Key hive = OpenCurrentUser();
  try {
    CheckBlackList(TEXT(".") + extension);
    // Software\Classes\.{ext}\OpenWithList\{exe}
    const WideString offer = ExtensionKey(extension) + TEXT("\\OpenWithList\\") + exe;
    if (asDefault) {
      // Whether the claim could be written decides nothing: the offer is made all the same.
      static_cast<void>(RegisterAutoFileProgId(hive.get(), extension, launcherPath));
      if (KeyExists(hive.get(), offer)) XDT_RAISE("registration already exists");
    }
    SetStringValue(hive.get(), offer, defaultValue, exe);
    return true;
  } catch (const std::exception&) {
    return false;  // this extension is not offered
  }
}

bool RegisterAutoFileProgId(HKEY hive, const WideString& extension, const WideString& launcherPath) {
  try {
    const WideString progId = AutoFileProgId(extension);
    if (!IsWindowsVersionOrLater(6, 1)) {
      // Software\Classes\.{ext}
      const std::size_t size = (progId.size() + 1) * sizeof(WCHAR);
      if (!SetDefault(hive, ExtensionKey(extension), progId.c_str(), size)) XDT_RAISE("SHSetValue() failed");
    }
    // Software\Classes\{autoprogid}
    if (!SetDefault(hive, ClassKey(progId), nullptr, 0)) XDT_RAISE("SHSetValue() auto_file failed");
    // Software\Classes\{autoprogid}\shell\open\command
    const WideString command = OpenCommand(launcherPath);
    if (!RegisterClassKey(hive, classesKey + TEXT("\\"), progId, &command))
      XDT_RAISE("Register auto_file failed");
    return true;
  } catch (const std::exception&) {
    return false;  // no claim; the offer is made all the same
  }
}

void AddOpenWithProgId(const WideString& extension) {
  try {
    // Software\Classes\.{ext}\OpenWithProgids
    const WideString path = ExtensionKey(extension) + TEXT("\\OpenWithProgids\\");
    HKEY created = nullptr;
    if (RegCreateKeyExW(HKEY_CURRENT_USER, path.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_WRITE,
                        nullptr, &created, nullptr) != ERROR_SUCCESS) {
      return;
    }
    const Key key(created);
    RegSetValueExW(key.get(), AutoFileProgId(extension).c_str(), 0, REG_NONE, nullptr, 0);
  } catch (const std::exception&) {
    // Out of memory: the shell finds the type by the offer alone.
  }
}

bool IsUnassociated(const WideString& extension) {
  const WideString dotted = TEXT(".") + extension;
  const ASSOCSTR wanted = IsWindowsVersionOrLater(6, 4) ? associatedProgId : ASSOCSTR_EXECUTABLE;
  DWORD size = 0xFFFFFFFF;
  return AssocQueryStringW(ASSOCF_INIT_IGNOREUNKNOWN | ASSOCF_NOTRUNCATE, wanted, dotted.c_str(), nullptr,
                           nullptr, &size) == HRESULT_FROM_WIN32(ERROR_NO_ASSOCIATION);
}
