// Building launchers: the copy of the template stub, its resources, and what belongs to it. Failures are
// xdt::exc_tag.
#pragma once

#include "common/host_application.h"

// Builds the launcher of `app` in `launcherFolder` with its application key and its shortcut. False when
// `skipIfCurrent` is set and a valid launcher is there, which is then left alone; true when it was built.
// Raises on failure; the launcher is then missing or not customised, or lacks its key or shortcut.
bool CreateLauncher(const WideString& launcherFolder, const MacAppInfo& app, bool skipIfCurrent);

// True when the launcher of `app` exists and carries a bundle identifier, whichever it is. One that carries
// none is removed with its registration and shortcut; one that cannot be loaded stays and is not valid.
bool HasValidLauncher(const WideString& launcherFolder, const MacAppInfo& app);

// Gives the launcher at `path` the identity, version information and icon of `app`, all or nothing. On a
// failure inside the update the file is deleted when `deleteOnFailure` is set, and the failure's whole text
// becomes the message; a file that cannot be opened for update or committed stays as it was.
void UpdateLauncherResources(const WideString& path, const MacAppInfo& app, bool deleteOnFailure);

// Where the guest tools are installed; empty when that is not known. Raises nothing but for want of memory.
WideString ToolsInstallLocation();

// True when `path` names a file or a folder.
bool FileExists(const WideString& path);

// Raises "DeleteFileW() failed" when the file is not there or cannot be deleted.
void DeleteExistingFile(const WideString& path);
