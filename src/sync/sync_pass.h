// The pass that brings the guest in line with the host's list of applications.
#pragma once

#include "common/text.h"

// Removes what the host no longer lists, registers what it lists, and tells the shell once when associations
// changed. An application whose registration fails is removed again. Raises std::exception when the list
// cannot be had (nothing is changed then) or resources run out.
void SyncHostApplications(const WideString& launcherFolder);
