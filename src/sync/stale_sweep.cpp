// The launcher folder is the only record of what was mirrored. Every .exe in it counts as a launcher, and the
// application is named by all but the last ten characters of its file: of a foreign file that is a wrong
// name, which usually no application has, and the file itself stays.
#include "sync/stale_sweep.h"

#include <set>

#include "common/handles.h"
#include "common/names.h"
#include "sync/removal.h"

namespace {

std::vector<WideString> FindStaleLaunchers(const std::set<WideString>& expected, const WideString& folder) {
  std::vector<WideString> stale;
  WIN32_FIND_DATAW entry;
  const UniqueFind find(FindFirstFileW((folder + TEXT("\\*.exe")).c_str(), &entry));
  if (!find) return stale;
  do {
    if ((entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) continue;
    WideString name = TextOf(entry.cFileName, std::size(entry.cFileName));
    if (!expected.contains(name)) stale.push_back(std::move(name));
  } while (FindNextFileW(find.get(), &entry));
  return stale;
}

// The name without " (Mac).exe", whatever its last 10 characters are; a shorter name whole.
WideView ApplicationName(WideView fileName) {
  constexpr std::size_t tail = launcherSuffix.size() + launcherExtension.size();
  return fileName.size() < tail ? fileName : fileName.substr(0, fileName.size() - tail);
}

}  // namespace

void RemoveStaleLaunchers(const MacAppInfoList& apps, const WideString& launcherFolder) {
  std::set<WideString> expected;
  for (const MacAppInfo& app : apps) expected.insert(LauncherFileName(app.name));
  for (const WideString& name : FindStaleLaunchers(expected, launcherFolder)) {
    RemoveHostApplication(WideString(ApplicationName(name)), launcherFolder, true);
  }
}
