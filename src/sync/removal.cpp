// The three steps, each contained for itself in quiet mode. The launcher goes last, as the record of what is
// mirrored; in quiet mode it goes even where an earlier step has failed.
#include "sync/removal.h"

#include <exception>

#include "common/names.h"
#include "launcher/fs.h"
#include "launcher/mainfo.h"
#include "registry/registry_removal.h"

namespace {

// Runs one step; a failure is false in quiet mode and passes on otherwise.
template <class Step>
bool Attempt(bool quiet, Step step) {
  try {
    step();
    return true;
  } catch (const std::exception&) {
    if (!quiet) throw;
    return false;
  }
}

}  // namespace

bool RemoveHostApplication(const WideString& name, const WideString& launcherFolder, bool quiet) {
  const WideString fullName = FullName(name);
  bool removed = Attempt(quiet, [&] { DeleteExistingFile(ShortcutPath(fullName)); });
  removed &= Attempt(quiet, [&] { UnregisterApplication(fullName); });
  removed &= Attempt(quiet, [&] { DeleteExistingFile(LauncherPath(launcherFolder, name)); });
  return removed;
}
