// Snapshots and their differences as text for people: a line for each file and each value, below a line for
// its key; in data the launcher folder is abbreviated to "{folder}".
#pragma once

#include <iosfwd>
#include <string>

#include "host/guest_view.h"

namespace host {

void PrintFiles(std::ostream& out, const Snapshot& guest);
void PrintRegistry(std::ostream& out, const Snapshot& guest);

// What changed, marked "+", "-" and "~"; false, and nothing printed, when nothing did.
bool PrintDifference(std::ostream& out, const Snapshot& before, const Snapshot& after);

}  // namespace host
