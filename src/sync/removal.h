// The removal of one application, the module's one clean-up.
#pragma once

#include "common/text.h"

// Removes shortcut, registration and launcher of the application `name` (without the launcher suffix), in
// this order. True when all three steps succeeded. With `quiet`, a failed step makes the result false and the
// next one runs; without, its std::exception passes to the caller and the later steps are not tried. Raises
// in both modes when the full name cannot be formed.
bool RemoveHostApplication(const WideString& name, const WideString& launcherFolder, bool quiet);
