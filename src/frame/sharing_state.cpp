// The two jobs of the module, each behind the one barrier of the command. A failed first step skips the
// second: no pass without its folder, no folder removed after a failed withdrawal.
#include "frame/sharing_state.h"

#include <exception>

#include "launcher/fs.h"
#include "sync/sync_pass.h"
#include "sync/withdrawal.h"

void HandleSharingState(bool on) {
  try {
    if (on) {
      SyncHostApplications(LauncherFolder());
    } else {
      WithdrawHostApplications();
      RemoveLauncherFolders();
    }
  } catch (const std::exception&) {
    // Dropped: the worker goes on, and the next command starts from what the guest then holds.
  }
}
