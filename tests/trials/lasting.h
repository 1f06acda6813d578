// What a fault leaves behind that no further "on" mends, because the pass ignores the failed call's result or
// has no record of what it has lost. All of it goes with the next "off". Differences are lines of
// host::Differences.
#pragma once

#include <string>

#include "trials/story.h"

namespace trials {

// The kind of a difference from the guest without faults; null for one that must not be. `cause` is the call
// that failed, "allocation" or "death".
const char* LastingKind(const Story& story, const Scene& scene, const std::string& cause,
                        const std::string& difference);

// An entry of an application that is gone, which no "off" finds any more.
bool IsLeftForGood(const Story& story, const std::string& difference);

}  // namespace trials
