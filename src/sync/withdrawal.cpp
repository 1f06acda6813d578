// The four sweeps. Keys that a sweep deletes are collected while it enumerates and deleted afterwards, so
// that the enumeration's indices stay valid.
#include "sync/withdrawal.h"

#include <shlwapi.h>

#include <algorithm>
#include <exception>
#include <unordered_map>
#include <vector>

#include "common/names.h"
#include "launcher/fs.h"
#include "registry/registry.h"
#include "registry/registry_names.h"
#include "registry/registry_removal.h"

namespace {

using Names = std::vector<WideString>;

// A number that two names share when the registry may take them for one. It folds case unit by unit, with a
// table of the system's own, of which this much is sure: within ASCII, a letter's other case; beyond, and for
// I, K and S, which have further cases there, nothing.
std::size_t Likeness(WideView name) {
  std::size_t likeness = name.size();
  for (WCHAR unit : name) {
    if (unit >= TEXT('A') && unit <= TEXT('Z')) unit = static_cast<WCHAR>(unit + 32);
    const bool unsure = unit >= 0x80 || unit == TEXT('i') || unit == TEXT('k') || unit == TEXT('s');
    likeness = likeness * 31 + (unsure ? 0u : unit);
  }
  return likeness;
}

// The launchers' file names, in the order of their keys and once more for look-ups.
struct Launchers {
  Names names;
  std::unordered_multimap<std::size_t, WideView> byLikeness;
};

Key OpenInUserHive(const WCHAR* path) {
  const Key hive = OpenCurrentUser();
  return OpenKey(hive.get(), path);
}

// Calls `visit` with the name of each subkey of `key` until the enumeration ends, for whatever reason. True
// when it has met all of them.
template <class Visit>
bool ForEachSubkey(const Key& key, Visit visit) {
  WCHAR name[1024];
  for (DWORD index = 0;; ++index) {
    auto length = static_cast<DWORD>(std::size(name));
    const LSTATUS error = RegEnumKeyExW(key.get(), index, name, &length, nullptr, nullptr, nullptr, nullptr);
    if (error != ERROR_SUCCESS) return error == ERROR_NO_MORE_ITEMS;
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
void SweepApplicationKeys(WideView suffix, Launchers& launchers) {
  const WideString keySuffix = WideString(suffix).append(launcherExtension);
  const Key applications = OpenInUserHive(TEXT("Software\\Classes\\Applications\\"));
  ForEachSubkey(applications, [&](const WideString& name) {
    if (name.ends_with(keySuffix)) launchers.names.push_back(name);
  });
  for (const WideString& name : launchers.names) launchers.byLikeness.emplace(Likeness(name), name);
  for (const WideString& name : launchers.names) {
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
// behind its opening quotation mark. Their names are sorted in the end.
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
  std::ranges::sort(autoFileProgIds);
}

// The names of the launchers that the subkeys of an extension's `offers` may be. False when not all subkeys
// could be looked at.
bool FindOffers(const Key& offers, const Launchers& launchers, Names& found) {
  try {
    return ForEachSubkey(offers, [&](const WideString& name) {
      const auto [first, last] = launchers.byLikeness.equal_range(Likeness(name));
      if (std::any_of(first, last, [&](const auto& alike) { return alike.second == name; })) {
        found.push_back(name);
      } else {
        for (auto alike = first; alike != last; ++alike) found.emplace_back(alike->second);
      }
    });
  } catch (const std::exception&) {
    return false;  // out of memory
  }
}

// Deletes the launchers' own among an extension's offers; where these cannot be told, asks for every
// launcher's.
void DeleteOffers(const Key& offers, const Launchers& launchers) {
  if (launchers.names.empty()) return;
  Names found;
  const bool complete = FindOffers(offers, launchers, found);
  for (const WideString& name : complete ? found : launchers.names) SHDeleteKeyW(offers.get(), name.c_str());
}

// The launchers' Open With offers below one extension, and its default when a sweep has just removed that.
void CleanExtension(const Key& classes, const WideString& extension, const Launchers& launchers,
                    const Names& autoFileProgIds) {
  const Key offers = OpenKey(classes.get(), extension + TEXT("\\OpenWithList\\"));
  DeleteOffers(offers, launchers);
  if (autoFileProgIds.empty()) return;
  const auto progId = FindStringValue(classes.get(), extension, defaultValue);  // most have none
  if (progId && std::ranges::binary_search(autoFileProgIds, *progId)) {
    SetStringValue(classes.get(), extension, defaultValue, {});
  }
}

void SweepExtensionKeys(const Launchers& launchers, const Names& autoFileProgIds) {
  const Key classes = OpenInUserHive(TEXT("Software\\Classes\\"));
  ForEachSubkey(classes, [&](const WideString& name) {
    if (!name.starts_with(TEXT('.'))) return;
    try {
      CleanExtension(classes, name, launchers, autoFileProgIds);
    } catch (const std::exception&) {
      // An extension without offers, or one that denies access.
    }
  });
}

}  // namespace

void WithdrawHostApplications() {
  Launchers launchers;
  SweepApplicationKeys(launcherSuffix, launchers);
  const WideString launcherFolder = LauncherFolder();
  Names autoFileProgIds;
  SweepAutoFileProgIds(launcherFolder, autoFileProgIds);
  SweepExtensionKeys(launchers, autoFileProgIds);
}
