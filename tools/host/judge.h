// The judge: is the guest as the catalogue asks for, whatever its history? Each application's launcher,
// shortcut and registrations are compared with what a guest would hold that has just mirrored the catalogue;
// what the module leaves in place on purpose is said, too. Nothing in the guest changes.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "guest/guest_view.h"
#include "host/catalogue.h"

namespace host {

struct Finding {
  enum class Kind {
    Missing,
    Wrong,
    Unexpected,  // it would have to go
    Kept,        // not what the catalogue says, but left so on purpose
  };
  Kind kind = Kind::Wrong;
  std::string application;  // its name; empty when the finding is no application's
  std::string text;         // a sentence without its stop: "the shortcut is missing"
  std::string path;         // of the file or entry in the guest; a value's name stands behind valueMark
};

// The findings of `guest`, which is the guest as it is now, sorted by application; `sharing` says whether it
// is on. With sharing off nothing but the documented residue may be there, and the catalogue tells which
// applications were shared last.
std::vector<Finding> Judge(const Snapshot& guest, const Catalogue& catalogue, bool sharing);

// The applications of the catalogue that have no launcher.
std::vector<std::string> Unmirrored(const Catalogue& catalogue, const Snapshot& guest);

// One line a finding ("Loom: the shortcut is missing"), and one that sums up.
void PrintFindings(std::ostream& out, const std::vector<Finding>& findings);
// The same for programs: {"differences": 1, "kept": 0, "findings": [{"kind": "missing", ...}]}.
void PrintFindingsAsJson(std::ostream& out, const std::vector<Finding>& findings);

std::size_t CountKept(const std::vector<Finding>& findings);

}  // namespace host
