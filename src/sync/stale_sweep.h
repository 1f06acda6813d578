// The sweep that removes the applications which the host no longer lists.
#pragma once

#include "common/host_application.h"

// Removes every application whose launcher lies in `launcherFolder` and whose launcher file name no entry of
// `apps` calls for, letter case included. Raises only when resources run out.
void RemoveStaleLaunchers(const MacAppInfoList& apps, const WideString& launcherFolder);
