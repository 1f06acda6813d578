// The two folders of the current user, the paths of an application's files in them, shortcuts, and deletion
// through the shell. Names are used as the host gives them. Failures are xdt::exc_tag. The shortcut
// operations need COM initialised on the calling thread.
#pragma once

#include "common/text.h"

// The path of a special folder (a CSIDL), created when missing. Raises "SHGetSpecialFolderPathW() failed".
WideString SpecialFolderPath(int csidl);

// The launcher folder, without a trailing separator. Created when that is possible; only a special folder
// that cannot be had raises.
WideString LauncherFolder();

// The shortcut folder, with a trailing backslash; created and raising as above.
WideString ShortcutFolder();

// The shortcut file of an application's full name; creates the shortcut folder as above.
WideString ShortcutPath(WideView fullName);

// The launcher file of the application `name` (without the suffix) in `launcherFolder`. Creates nothing.
WideString LauncherPath(WideView launcherFolder, WideView name);

// Writes a shell link; an existing file is replaced. Raises when the link cannot be made or saved.
void CreateShortcut(const WideString& target, const WideString& link, const WideString& description);

// The Start-menu shortcut of one launcher.
void CreateLauncherShortcut(const WideString& launcherPath, WideView fullName);

// Deletes a file, or a folder with everything in it, for good and without a question. Raises when that fails,
// also for a path that does not exist.
void DeletePath(const WideString& path);

// Deletes the launcher folder, then the shortcut folder; the first failure ends it.
void RemoveLauncherFolders();
