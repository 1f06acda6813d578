// The deletions of one application, trees whole. What lies under extensions and schemes is the withdrawal's.
#include "registry/registry_removal.h"

#include <shlwapi.h>

#include "registry/registry_names.h"
#include "xdt/exception/exc_tag.h"

bool RemoveApplicationKeys(const WideString& app, HKEY hive) {
  // Software\Classes\{progid}
  SHDeleteKeyW(hive, ClassKey(UrlProgId(app)).c_str());
  // SOFTWARE\Tessarine\Tessarine Tools\MacApps\{app}
  SHDeleteKeyW(hive, (toolsKey + TEXT("\\") + MacAppsSubkey(app)).c_str());
  // Software\RegisteredApplications
  DeleteValue(hive, registeredApplicationsKey, app);
  // {appkey}
  return SHDeleteKeyW(hive, ApplicationKey(app).c_str()) == ERROR_SUCCESS;
}

void UnregisterApplication(const WideString& app) {
  const Key hive = OpenCurrentUser();
  if (!RemoveApplicationKeys(app, hive.get())) XDT_RAISE("can't unregister application");
}
