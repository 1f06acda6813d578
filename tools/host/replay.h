// Plays a recording once more: the recorded commands and answers, against a module of now.
#pragma once

#include <iosfwd>

#include "host/story.h"
#include "host/trace.h"

namespace host {

// Says of each command whether the guest asked the same and came out the same; true when all did. The guest
// must be as the recorded one was at its beginning. Throws std::runtime_error when the module does not go on.
bool Replay(std::ostream& out, const Trace& trace, const SessionOptions& options);

}  // namespace host
