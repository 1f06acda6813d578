// The guest's registry, arranged and read by tests; keys, values and text as guest/registry.h has them. What
// fails throws std::runtime_error.
#pragma once

#include "guest/registry.h"

namespace hive {

using host::PutData;
using host::PutKey;
using host::PutText;

inline const std::string classes = "HKCU\\Software\\Classes\\";
inline const std::string applications = "HKCU\\Software\\Classes\\Applications\\";
inline const std::string registered = "HKCU\\Software\\RegisteredApplications";

void Drop(const std::string& key);  // with everything below it; it may be missing

bool Has(const std::string& key);
// One value as it is stored: a REG_SZ in quotation marks, other types by name; "none" when it is missing.
std::string Value(const std::string& key, const std::string& name);

// Everything below the current user's keys that the module writes under, one line a key (without its root)
// and a value, with "{folder}" for the launcher folder: equal registries give equal texts.
std::string Text();

// Associates .{extension} for all users of the machine, until the next test: with a ProgID, and with an open
// command or without one.
void PutMachineAssociation(const std::string& extension, bool withCommand);

}  // namespace hive
