// Snapshots and their differences as text for people: a line for each file and each value, below a line for
// its key; in data the launcher folder is abbreviated to "{folder}".
#pragma once

#include <iosfwd>
#include <string>

#include "guest/guest_view.h"

namespace host {

void PrintFiles(std::ostream& out, const Snapshot& guest);
void PrintRegistry(std::ostream& out, const Snapshot& guest);

// A launcher and a shortcut with what they carry, and the registry's entries of an application; false, and
// nothing printed, when there is nothing of it.
bool PrintApplication(std::ostream& out, const Snapshot& guest, const std::string& name);

// How many files and entries there are now, and how many came, went and changed.
void PrintTally(std::ostream& out, const Snapshot& before, const Snapshot& now);

// "3 launchers", "1 registry entry".
std::string Count(std::uint64_t number, const std::string& noun);

// What changed, marked "+", "-" and "~"; false, and nothing printed, when nothing did.
bool PrintDifference(std::ostream& out, const Snapshot& before, const Snapshot& after);

}  // namespace host
