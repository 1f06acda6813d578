// Components between their creation and their classes.
#pragma once

#include <objbase.h>

namespace platform {

// The planned error of a failing call as a result; it may be one already.
HRESULT PlannedResult();

// A new link, with its first reference taken as `iid`.
HRESULT CreateShellLink(REFIID iid, void** object);

}  // namespace platform
