// One pass, from the host's list to the shell's notice. It keeps nothing between runs.
#include "sync/sync_pass.h"

#include <shlobj.h>

#include "channel/mainfo.h"
#include "registry/registry_registration.h"
#include "sync/removal.h"
#include "sync/stale_sweep.h"

void SyncHostApplications(const WideString& launcherFolder) {
  MacAppInfoList apps;
  GetMacAppList(TEXT("*"), apps);
  RemoveStaleLaunchers(apps, launcherFolder);
  std::int32_t changes = 0;
  for (const MacAppInfo& app : apps) {
    try {
      if (RegisterHostApplication(launcherFolder, app, true)) ++changes;
    } catch (const std::exception&) {
      // Rather none than half an application; the next pass tries it again from the start.
      RemoveHostApplication(app.name, launcherFolder, true);
    }
  }
  if (changes > 0) SHChangeNotify(SHCNE_ASSOCCHANGED, SHCNF_IDLIST, nullptr, nullptr);
}
