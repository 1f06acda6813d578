// Snapshots and their differences as short text for people: trees, in which a chain of keys without branches
// takes one line and the launcher folder is abbreviated to "{folder}".
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
