// One launcher and one file extension: Open With offers, and claims of extensions that nothing opens. Every
// operation contains its own failures, so that one bad extension never stops the others. {app} is the
// application's full name; extensions come without the dot.
#pragma once

#include "registry/registry.h"

// Offers the launcher {app}.exe in `launcherFolder` in the extension's Open With list; with `asDefault`,
// first writes the extension's auto-file ProgID for it. True when the offer was written; false when the
// extension is black-listed, when `asDefault` is set and the offer was there already, or when a write failed.
// Raises only "RegOpenCurrentUser() failed".
bool RegisterOpenWith(const WideString& app, const WideString& extension, const WideString& launcherFolder,
                      bool asDefault);

// Writes the extension's auto-file ProgID with its open command; before version 6.1 also makes it the
// extension's default. False on any failure, which RegisterOpenWith ignores: an offer without a claim is
// still one. Raises nothing derived from std::exception.
bool RegisterAutoFileProgId(HKEY hive, const WideString& extension, const WideString& launcherPath);

// Adds the auto-file ProgID to the extension's OpenWithProgids, for version 6.1 and later. Silent on failure.
void AddOpenWithProgId(const WideString& extension);

// True only when the shell reports that nothing is associated with the extension.
bool IsUnassociated(const WideString& extension);
