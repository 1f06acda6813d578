// The four sweeps. Keys that a sweep deletes are collected while it enumerates and deleted afterwards, so
// that the enumeration's indices stay valid.
#include "sync/withdrawal.h"

#include <shlwapi.h>

#include <algorithm>
#include <exception>
#include <vector>

#include "common/names.h"
#include "launcher/fs.h"
#include "registry/registry.h"
#include "registry/registry_names.h"
#include "registry/registry_removal.h"

namespace {

using Names = std::vector<WideString>;

Key OpenInUserHive(const WCHAR* path) {
  const Key hive = OpenCurrentUser();
  return OpenKey(hive.get(), path);
}

// Calls `visit` with the name of each subkey of `key` until the enumeration ends, for whatever reason.
template <class Visit>
void ForEachSubkey(const Key& key, Visit visit) {
  WCHAR name[1024];
  for (DWORD index = 0;; ++index) {
    auto length = static_cast<DWORD>(std::size(name));
    if (RegEnumKeyExW(key.get(), index, name, &length, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS)
      return;
    visit(WideString(name, length));
  }
}

// Keys made for the applications' URL schemes: described as theirs, and without keys of their own below.
void SweepUrlProtocols(WideView suffix) {
  const Key classes = OpenInUserHive(TEXT("Software\\Classes\\"));
  Names found;
  ForEachSubkey(classes, [&](const WideString& name) {
    if (!HasStringValue(classes.get(), name, urlProtocolValue)) return;
    WideString description;
    try {
      description = GetStringValue(classes.get(), name, defaultValue);
    } catch (const std::exception&) {
      return;  // not described as text: not ours
    }
    if (description.ends_with(suffix)) found.push_back(name);
  });
  for (const WideString& name : found) RegDeleteKeyW(classes.get(), name.c_str());
}

// The launchers' application keys, and through their names each application's own entries.
void SweepApplicationKeys(WideView suffix, Names& launcherFileNames) {
  const WideString keySuffix = WideString(suffix).append(launcherExtension);
  const Key applications = OpenInUserHive(TEXT("Software\\Classes\\Applications\\"));
  ForEachSubkey(applications, [&](const WideString& name) {
    if (name.ends_with(keySuffix)) launcherFileNames.push_back(name);
  });
  for (const WideString& name : launcherFileNames) {
    try {
      SHDeleteKeyW(applications.get(), name.c_str());
      const Key hive = OpenCurrentUser();
      RemoveApplicationKeys(name.substr(0, name.size() - launcherExtension.size()), hive.get());
    } catch (const std::exception&) {
      // This application keeps what could not be removed; the others go on.
    }
  }
  SweepUrlProtocols(suffix);
}

// ProgIDs that open an extension's files with a launcher: their command starts with the launcher folder,
// behind its opening quotation mark.
void SweepAutoFileProgIds(const WideString& launcherFolder, Names& autoFileProgIds) {
  const Key classes = OpenInUserHive(TEXT("Software\\Classes\\"));
  ForEachSubkey(classes, [&](const WideString& name) {
    if (name.size() <= autoFileSuffix.size() || !name.ends_with(autoFileSuffix)) return;
    WideString command;
    try {
      command = GetStringValue(classes.get(), name + commandSubkey, defaultValue);
    } catch (const std::exception&) {
      return;  // no command that could be ours
    }
    if (command.size() > launcherFolder.size() && WideView(command).substr(1).starts_with(launcherFolder)) {
      autoFileProgIds.push_back(name);
    }
  });
  for (const WideString& name : autoFileProgIds) SHDeleteKeyW(classes.get(), name.c_str());
}

// The launchers' Open With offers below one extension, and its default when a sweep has just removed that.
void CleanExtension(const Key& classes, const WideString& extension, const Names& launcherFileNames,
                    const Names& autoFileProgIds) {
  const Key offers = OpenKey(classes.get(), extension + TEXT("\\OpenWithList\\"));
  for (const WideString& name : launcherFileNames) SHDeleteKeyW(offers.get(), name.c_str());
  if (autoFileProgIds.empty()) return;
  const WideString progId = GetStringValue(classes.get(), extension, defaultValue);
  if (std::find(autoFileProgIds.begin(), autoFileProgIds.end(), progId) != autoFileProgIds.end()) {
    SetStringValue(classes.get(), extension, defaultValue, {});
  }
}

void SweepExtensionKeys(const Names& launcherFileNames, const Names& autoFileProgIds) {
  const Key classes = OpenInUserHive(TEXT("Software\\Classes\\"));
  ForEachSubkey(classes, [&](const WideString& name) {
    if (!name.starts_with(TEXT('.'))) return;
    try {
      CleanExtension(classes, name, launcherFileNames, autoFileProgIds);
    } catch (const std::exception&) {
      // An extension without offers, or one that denies access.
    }
  });
}

}  // namespace

void WithdrawHostApplications() {
  Names launcherFileNames;
  SweepApplicationKeys(launcherSuffix, launcherFileNames);
  const WideString launcherFolder = LauncherFolder();
  Names autoFileProgIds;
  SweepAutoFileProgIds(launcherFolder, autoFileProgIds);
  SweepExtensionKeys(launcherFileNames, autoFileProgIds);
}
